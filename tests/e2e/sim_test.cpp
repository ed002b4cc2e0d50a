// The real daemon against the fake kernel, on an accelerated clock shared with the test:
// kernel events reaching limit lines and policy bytes, an app limit timing out, and an
// anti-swelling scene entered after a simulated week and left again.
#include <sys/wait.h>
#include <time.h>

#include <cstring>
#include <map>
#include <thread>

#include "basp/basp_battery.h"
#include "sim/fakefs/fake_kernel.h"
#include "sim/fakefs/file_nodes.h"
#include "sim/runner/daemon_process.h"
#include "sim/runner/sim_clock.h"
#include "tests/support/fake_device.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr const char* kVterm = "class/vn_power/interface/vterm_dec";
constexpr const char* kIchgLimit = "class/vn_power/interface/ichg_limit";
constexpr const char* kDmd = "devices/platform/vorlan_batt_soh/quen_dmd_report";
constexpr const char* kAging = "devices/platform/vorlan_batt_soh/basp/basp_data";
constexpr const char* kPolicy = "devices/platform/vorlan_batt_soh/basp/basp_policy";
// 2026-03-01 20:00:00 in UTC+8.
constexpr int64_t kStart = 1772366400;

class SimTest : public FakeDeviceTest {
protected:
    void SetUp() override {
        std::string reason;
        if (!sim::FakeKernel::Available(reason)) {
            GTEST_SKIP() << "FUSE is not available here (" << reason
                         << "): the fake-kernel tests are skipped";
        }
        dev.CopyTree("examples/device");
    }
    void TearDown() override {
        daemon.Stop(SIGTERM, 2000);
        if (kernel) {
            kernel->Unmount();
        }
    }
    // Mounts the fake kernel over the copied tree, with `values` replacing the tree's, and
    // starts the daemon at `speed`.
    void Start(int64_t speed, const std::map<std::string, std::string>& values = {}) {
        std::string error;
        ASSERT_TRUE(nodes.Load(dev.HostPath("/sys"), error)) << error;
        for (const auto& kv : values) {
            nodes.Set(kv.first, kv.second);
        }
        kernel = std::make_unique<sim::FakeKernel>(nodes);
        ASSERT_TRUE(kernel->Mount(dev.HostPath("/sys"), error)) << error;
        clock = sim::SimClock::StartNow(kStart, speed);
        ASSERT_TRUE(daemon.Start(QUEN_BINARY, {"-d"},
                                 {{"QUEN_ROOT", dev.Root()},
                                  {"QUEN_CLOCK_SPEED", std::to_string(speed)},
                                  {"QUEN_CLOCK_START", std::to_string(kStart)},
                                  {"QUEN_CLOCK_ANCHOR", std::to_string(clock.anchorNs)},
                                  {"TZ", "CST-8"}},
                                 dev.HostPath("/quen.log"), error))
            << error;
    }
    // Waits for a write to `node` equal to `value` (or any write, when empty).
    bool Written(const std::string& node, const std::string& value, size_t& from,
                 seconds timeout = seconds(20)) {
        return nodes.WaitForWrite(
            node, [&](const std::string& d) { return value.empty() || d == value; }, from,
            std::chrono::duration_cast<milliseconds>(timeout));
    }
    int Ctl(const std::string& args) {
        std::string cmd = std::string(QUENCTL_BINARY) + " --root '" + dev.Root() + "' " + args +
                          " >/dev/null 2>&1";
        int status = system(cmd.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    // The daemon's log and every kernel write, for failure messages.
    std::string Log() {
        std::string writes;
        for (const auto& w : nodes.History()) {
            writes += w.path + " <- " + (w.data.size() == 16 ? "(16 bytes)" : w.data) + "\n";
        }
        return dev.Read("/quen.log") + "\nkernel writes:\n" + writes;
    }

    sim::FileNodes nodes;
    std::unique_ptr<sim::FakeKernel> kernel;
    sim::DaemonProcess daemon;
    sim::SimClock clock;
};

}  // namespace

TEST_F(SimTest, AgingEventBecomesPolicyBytesAndLimitLines) {
    Start(1);
    size_t from = 0;
    // The tree's record (520 cycles) holds level 1 from the start.
    ASSERT_TRUE(Written(kVterm, "quen dcp 10", from)) << Log();
    BaspBattery::BatteryAgingData record{};
    record.designFcc = 4500;
    record.cycleCount = 850;  // past the 800 cycles of level 2
    record.fccCount = 5;
    for (uint32_t& fcc : record.fccs) {
        fcc = 4200;
    }
    size_t policyFrom = nodes.History().size();
    nodes.Set(kAging, std::string(reinterpret_cast<const char*>(&record), sizeof(record)));
    nodes.RaiseEvent(kAging);

    ASSERT_TRUE(Written(kPolicy, "", policyFrom)) << Log();
    std::string bytes = nodes.History()[policyFrom - 1].data;
    ASSERT_EQ(bytes.size(), sizeof(BaspBattery::BatteryAgingPolicy));
    BaspBattery::BatteryAgingPolicy policy{};
    memcpy(&policy, bytes.data(), sizeof(policy));
    EXPECT_EQ(policy.level, 2u);
    EXPECT_EQ(policy.errNo, 2u);
    EXPECT_TRUE(Written(kVterm, "quen lvc 20", from)) << Log();  // buck types are graded by days
    EXPECT_TRUE(Written(kIchgLimit, "quen all 4000", from = 0)) << Log();
}

TEST_F(SimTest, AppLimitLapsesWithoutHeartbeat) {
    Start(1000);  // the 2460-second heartbeat passes in under three real seconds
    size_t from = 0;
    // The aging policy's own current limit is in force until the app asks for less.
    ASSERT_TRUE(Written(kIchgLimit, "quen all 4500", from)) << Log();
    ASSERT_EQ(Ctl("set ichg_limit 'all 1500'"), 0);
    ASSERT_TRUE(Written(kIchgLimit, "quen all 1500", from)) << Log();
    const double set = clock.Now();
    ASSERT_TRUE(Written(kIchgLimit, "quen all 4500", from)) << Log();
    EXPECT_GE(clock.Now() - set, 2460 - 10);
}

TEST_F(SimTest, AswSceneIsEnteredAfterAWeekOnTheChargerAndLeftOffIt) {
    // A phone on the charger at 4.42 V: a week of high voltage selects the high-voltage scene.
    Start(100000, {{"class/power_supply/Battery/voltage_now", "4420000\n"},
                   {"class/power_supply/Battery/temp", "300\n"},
                   {"class/vn_power/charger/charge_data/chargerType", "3\n"}});
    size_t from = 0;
    ASSERT_TRUE(Written(kDmd, "asw 930101", from, seconds(60))) << Log();
    const double entered = clock.Now();
    EXPECT_GE(entered - kStart, 6 * 86400.0);  // the first evening and six days close a week
    EXPECT_TRUE(Written(kVterm, "quen dcp 50", from = 0)) << Log();

    // Off the charger at a lower voltage: at a day close once the week no longer meets the
    // entry rule (60 % of it on the charger), no scene is chosen and the normal event is sent.
    nodes.Set("class/power_supply/Battery/voltage_now", "3900000\n");
    nodes.Set("class/vn_power/charger/charge_data/chargerType", "5\n");
    from = 0;
    ASSERT_TRUE(Written(kDmd, "asw 930100", from, seconds(60))) << Log();
    EXPECT_GE(clock.Now() - entered, 2 * 86400.0);
    EXPECT_NE(Log().find("asw entry scene 0 from 1"), std::string::npos) << Log();
    // The scene's 50 mV decrease is lifted: the aging policy's own demand is in force again.
    EXPECT_TRUE(nodes.WaitForWrite(
        kVterm, [](const std::string& d) { return d == "quen dcp 10" || d == "quen dcp 12"; }, from,
        milliseconds(20000)))
        << Log();
}
