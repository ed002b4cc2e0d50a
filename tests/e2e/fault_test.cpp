// Faults injected through the fake kernel and the storage under the running daemon: reads
// that fail or come short, writes refused, a node that disappears, an event storm, a full
// /log. The daemon logs, keeps running, and recovers when the fault ends.
#include <signal.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "basp/basp_battery.h"
#include "tests/e2e/sim_fixture.h"
#include "tools/records/records_scan.h"

namespace {

using namespace e2e;

class FaultTest : public SimTest {
protected:
    void TearDown() override {
        SimTest::TearDown();
        if (!tmpfs_.empty()) {
            umount2(tmpfs_.c_str(), MNT_DETACH);
        }
    }
    void RaiseAging(uint32_t cycles, uint32_t fcc) {
        BaspBattery::BatteryAgingData aging{};
        aging.designFcc = 4500;
        aging.cycleCount = cycles;
        aging.fccCount = 5;
        for (uint32_t& f : aging.fccs) {
            f = fcc;
        }
        nodes.Set(kAging, std::string(reinterpret_cast<const char*>(&aging), sizeof(aging)));
        nodes.RaiseEvent(kAging);
    }
    std::string tmpfs_;
};

}  // namespace

TEST_F(FaultTest, ReadFaultsAreLoggedAndTheNextGoodReadIsTaken) {
    Start(1000);
    ASSERT_TRUE(ServiceUp()) << Log();
    size_t from = 0;
    ASSERT_TRUE(Written(kVterm, "quen lvc 10", from)) << Log();

    // A record that comes short is dropped with its size; the anti-swelling reads fail too.
    kernel->SetFault(kAging, {0, 3, 0, false});
    kernel->SetFault(kVoltage, {EIO, 0, 0, false});
    RaiseAging(850, 4200);
    EXPECT_TRUE(Logged("read aging data failed and size is 3")) << Log();
    // Accounting goes on with the read sentinels: the record is still saved on time.
    const int saved = CountLog("asw save data to file success");
    EXPECT_TRUE(Logged("asw save data to file success", saved + 1)) << Log();

    // Faults lifted: the next event is taken whole.
    kernel->ClearFaults();
    RaiseAging(850, 4200);
    EXPECT_TRUE(Written(kVterm, "quen lvc 20", from)) << Log();
    EXPECT_TRUE(Alive());
}

TEST_F(FaultTest, RefusedWritesAreLoggedAndALaterChangeIsWritten) {
    Start(1000);
    size_t from = 0;
    ASSERT_TRUE(Written(kVterm, "quen lvc 10", from)) << Log();
    kernel->SetFault(kVterm, {0, 0, EIO, false});
    RaiseAging(850, 4200);
    EXPECT_TRUE(Logged("write file /sys/class/vn_power/interface/vterm_dec len")) << Log();
    EXPECT_TRUE(Alive());
    kernel->ClearFaults();
    RaiseAging(1300, 3300);  // on to level 4: a change, written again
    EXPECT_TRUE(Written(kVterm, "quen lvc 60", from)) << Log();
}

TEST_F(FaultTest, ANodeThatDisappearsAndAnEventStormLoseNothingValid) {
    Start(1000);
    ASSERT_TRUE(ServiceUp()) << Log();
    ASSERT_TRUE(Logged("poll start in acr")) << Log();  // armed: events from now on are seen
    RaiseAcr(41000);
    ASSERT_TRUE(Logged("going to read acr information")) << Log();
    for (int i = 0; i < 200 && Size("/log/soh/acr.dat") < 212; ++i) {
        std::this_thread::sleep_for(milliseconds(10));
    }
    ASSERT_EQ(Size("/log/soh/acr.dat"), 212u) << Log();

    kernel->SetFault(kAcr, {0, 0, 0, true});
    RaiseAcr(42000);
    EXPECT_TRUE(Logged("get raw information size:", 1)) << Log();
    EXPECT_EQ(Size("/log/soh/acr.dat"), 212u);
    kernel->SetFault(kAcr, {});
    // The monitor opens the node again on its back-off; events from then on are seen.
    ASSERT_TRUE(Logged("acr_info in acr opened again after")) << Log();

    // A storm of events: each wake-up reads the node once; every record appended is whole.
    // (Kept small enough for the sanitizer builds, where each event costs milliseconds.)
    constexpr int kStorm = 300;
    for (int i = 0; i < kStorm; ++i) {
        RaiseAcr(43000);
    }
    // Wait for the appends, not for a time: at least one record of the storm must land.
    for (int i = 0; i < 6000 && Size("/log/soh/acr.dat") <= 212; ++i) {
        std::this_thread::sleep_for(milliseconds(10));
    }
    EXPECT_TRUE(Alive()) << Log();
    const uint64_t size = Size("/log/soh/acr.dat");
    EXPECT_GT(size, 212u);
    EXPECT_EQ(size % 212, 0u);
    printf("[ figures  ] %d events raised in a burst: %llu records appended\n", kStorm,
           static_cast<unsigned long long>(size / 212 - 1));
}

TEST_F(FaultTest, AFullLogIsSurvivedAndSavingResumesWhenSpaceReturns) {
    tmpfs_ = dev.HostPath("/log");
    if (mount("quen-test", tmpfs_.c_str(), "tmpfs", 0, "size=256k") != 0) {
        tmpfs_.clear();
        GTEST_SKIP() << "cannot mount a small tmpfs here (" << strerror(errno) << "): skipped";
    }
    dev.MakeDir("/log/soh");
    // Leave a few hundred bytes: records begin to be written and cannot be completed.
    {
        std::ofstream filler(dev.HostPath("/log/filler"), std::ios::binary);
        filler << std::string(256 * 1024 - 8 * 1024, 'x');
    }
    {
        std::ofstream more(dev.HostPath("/log/filler2"), std::ios::binary);
        more << std::string(64 * 1024, 'x');  // fails part-way: the file system is full
    }
    Start(2000, {{kVoltage, "4420000\n"}});
    ASSERT_TRUE(ServiceUp()) << Log();
    EXPECT_TRUE(Logged("asw save data to file failed", 1, seconds(30))) << Log();
    EXPECT_TRUE(Alive());

    dev.Remove("/log/filler");
    dev.Remove("/log/filler2");
    EXPECT_TRUE(Logged("asw save data to file success", 1, seconds(30))) << Log();
    std::vector<InspectedRecord> records;
    std::string error;
    ASSERT_TRUE(Inspect::ScanRoot(dev.Root(), records, error)) << error;
    for (const InspectedRecord& r : records) {
        EXPECT_TRUE(r.ok) << r.path << ": " << r.error;
    }
}
