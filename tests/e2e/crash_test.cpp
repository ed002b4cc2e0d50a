// The daemon killed outright at random moments while it saves, again and again: every
// persistent record must still decode (the old state or the new, never a torn one) and the
// app's limit must come back after each restart.
#include <signal.h>

#include <cstring>
#include <random>
#include <set>

#include "basp/basp_battery.h"
#include "tests/e2e/sim_fixture.h"
#include "tools/records/records_scan.h"

namespace {

using namespace e2e;

class CrashTest : public SimTest {
protected:
    // A new aging record (the ring moves on) and an impedance measurement: each makes the
    // daemon save its aging record and append to its impedance log.
    void RaiseEvents(uint32_t n) {
        BaspBattery::BatteryAgingData aging{};
        aging.designFcc = 4500;
        aging.cycleCount = 520 + n;
        aging.fccCount = 5;
        for (uint32_t i = 0; i < 5; ++i) {
            aging.fccs[i] = 4100 - 10 * ((n + i) % 7);
        }
        nodes.Set(kAging, std::string(reinterpret_cast<const char*>(&aging), sizeof(aging)));
        nodes.RaiseEvent(kAging);
        uint32_t acr[6] = {40000 + n, 520 + n, 27, 31, 29, 3950};
        nodes.Set(kAcr, std::string(reinterpret_cast<const char*>(acr), sizeof(acr)));
        nodes.RaiseEvent(kAcr);
    }
};

}  // namespace

TEST_F(CrashTest, EveryRecordSurvivesKillsDuringSavesAndLimitsComeBack) {
    // On the charger at a high voltage: the anti-swelling record is saved every 20 simulated
    // minutes, i.e. every 0.6 s at this speed, beside the event-driven saves.
    Mount({{kVoltage, "4420000\n"}, {"class/vn_power/charger/charge_data/chargerType", "3\n"}});
    ASSERT_FALSE(HasFatalFailure());
    std::mt19937 random(20261122);
    const int kRounds = 12;
    int restored = 0;
    for (int round = 0; round < kRounds; ++round) {
        size_t from = nodes.History().size();
        Launch(2000);
        ASSERT_TRUE(ServiceUp()) << "round " << round << "\n" << Log();
        if (round > 0) {
            // Restored from the system parameter record before any new request.
            restored += Written(kIchgLimit, "quen all 1500", from, seconds(10)) ? 1 : 0;
        }
        ASSERT_EQ(Ctl("set ichg_limit 'all 1500'"), 0);  // renewed, as an app's heartbeat does
        for (uint32_t burst = 0; burst < 4; ++burst) {
            RaiseEvents(round * 4 + burst);
        }
        std::this_thread::sleep_for(
            milliseconds(std::uniform_int_distribution<int>(0, 700)(random)));
        ASSERT_TRUE(Alive()) << Log();
        daemon.Stop(SIGKILL, 0);

        std::vector<InspectedRecord> records;
        std::string error;
        ASSERT_TRUE(Inspect::ScanRoot(dev.Root(), records, error)) << error;
        for (const InspectedRecord& r : records) {
            EXPECT_TRUE(r.ok) << "round " << round << ": " << r.path << ": " << r.error;
        }
        if (round == kRounds - 1) {
            std::set<std::string> kinds;
            for (const InspectedRecord& r : records) {
                kinds.insert(r.kind);
            }
            for (const char* kind : {"sys_para", "basp", "asw", "acr"}) {
                EXPECT_EQ(kinds.count(kind), 1u) << kind << " was never saved";
            }
        }
    }
    EXPECT_EQ(restored, kRounds - 1);
    printf("[ figures  ] %d kills during saves survived, %d restarts restored the limit\n", kRounds,
           restored);
}
