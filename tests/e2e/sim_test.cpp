// The real daemon against the fake kernel, on an accelerated clock shared with the test:
// kernel events reaching limit lines and policy bytes, an app limit timing out, and an
// anti-swelling scene entered after a simulated week and left again.
#include <cstring>

#include "basp/basp_battery.h"
#include "tests/e2e/sim_fixture.h"

using namespace e2e;

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
    // Timed from before the request: seeing the write late on a loaded machine must not
    // shorten the measured heartbeat.
    const double set = clock.Now();
    ASSERT_EQ(Ctl("set ichg_limit 'all 1500'"), 0);
    ASSERT_TRUE(Written(kIchgLimit, "quen all 1500", from)) << Log();
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
