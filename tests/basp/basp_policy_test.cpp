// Stage checks, battery configuration, level choice, learned capacity, decrement grading and the
// swell allowance, on the sample device's configuration.
#include <algorithm>
#include <tuple>

#include "basp/basp_policy_stage.h"
#include "core/soh_week_swell.h"
#include "tests/basp/basp_test_util.h"

namespace {

TEST_F(BaspTest, StageCheckCombinesConditionsByLogicalAndNeedsTheSwellAllowance) {
    BaspPolicyStage s;
    s.Level = 2;
    s.Cycles = 500;
    s.FccRatio = 90;  // limit 4050 for a design of 4500
    // (Logical, avgFcc, cycles) -> holds
    const std::tuple<uint32_t, uint32_t, uint32_t, bool> cases[] = {
        {0, 4049, 501, true}, {0, 4050, 501, false},  {0, 4049, 500, false}, {1, 4049, 500, true},
        {1, 4050, 501, true}, {1, 4050, 500, false},  {2, 4050, 501, true},  {2, 4000, 500, false},
        {3, 4049, 0, true},   {3, 4050, 9999, false}, {7, 1, 9999, false},
    };
    for (const auto& [logical, avg, cycles, holds] : cases) {
        s.Logical = logical;
        EXPECT_EQ(s.Check(4500, avg, cycles, 0), holds) << logical << " " << avg << " " << cycles;
    }
    s.Logical = 2;
    s.WeekAswell = 20;
    EXPECT_FALSE(s.Check(4500, 4500, 9999, 19));
    EXPECT_TRUE(dev.HasLog("policy stage 2 swell 20:19 not mtach\n"));
    EXPECT_TRUE(s.Check(4500, 4500, 9999, 20));
}

TEST_F(BaspTest, BatteryConfigurationErrorsAreRefusedWithTheirMessage) {
    // (what to change in the battery entry or the policy object, expected message)
    using Change = void (*)(Json::Value & root);
    const std::pair<Change, const char*> cases[] = {
        {[](Json::Value& r) { Entry(r)["BaspPolicy"] = 2; }, "battery policy config error\n"},
        {[](Json::Value& r) { Entry(r)["BaspPolicy"] = ""; }, "basp compatible version is empty\n"},
        {[](Json::Value& r) { Entry(r)["BaspPolicy"] = "3.0"; },
         "basp version 3 is not compatible\n"},
        {[](Json::Value& r) { Entry(r)["ndcVtermSteps"] = Json::arrayValue; },
         "basp ndcVtermStep not in ndcVtermSteps\n"},
        {[](Json::Value& r) { Entry(r).removeMember("ndcDefautStep"); },
         "basp battery not config ndcDefautStep\n"},
        {[](Json::Value& r) { r["2.0"] = "stages"; }, "policy configure is null\n"},
        {[](Json::Value& r) { r["2.0"][1].removeMember("Cycles"); },
         "init battery basp policy failed\n"},
        {[](Json::Value& r) { r["2.0"][2]["NonDcVoltDec"].resize(1); },
         "nonDcVoltDec configure is invalid\n"},
    };
    for (const auto& [change, message] : cases) {
        Json::Value root = Config();
        change(root);
        EXPECT_EQ(BaspBattery("QBT41").Init(root, Entry(root)), -1) << message;
        EXPECT_TRUE(dev.HasLog(message)) << message;
    }
    // The kernel's current wins unless it is 0; then the configuration must give one.
    dev.Write(BaspNodes::kIChgMax, std::string(4, '\0'));
    Json::Value root = Config();
    Entry(root).removeMember("IChargerMax");
    EXPECT_EQ(BaspBattery("QBT41").Init(root, Entry(root)), -1);
    EXPECT_TRUE(dev.HasLog("basp battery not config IChargerMax\n"));
    EXPECT_FALSE(dev.Exists(DbPath()));
}

TEST_F(BaspTest, BatteryTakesItsStepFromTheDeviceTreeAndAnyVersionTwoName) {
    Json::Value root = Config();
    root["2xyz"] = root["2.0"];
    Entry(root)["BaspPolicy"] = "2xyz";
    dev.Write(BaspNodes::kNdcVtermStep, std::string("\0\0\0\x10", 4));  // 16, big-endian
    BaspBattery battery("QBT41");
    ASSERT_EQ(battery.Init(root, Entry(root)), 0);
    EXPECT_EQ(battery.VtermStep(), 16u);
    EXPECT_EQ(battery.IChgMax(), 5000u);  // from the kernel node, not IChargerMax
    EXPECT_TRUE(dev.HasLog("basp: init battery imax:5000, ver:2xyz\n"));
    battery.Update(Record(900, {}));
    EXPECT_EQ(SentPolicy().ndcVdec, 32u);  // the stage's decrement for the second step
}

TEST_F(BaspTest, LevelIsTheHighestHoldingStageAndLearnedFccHasAFloor) {
    // (record, level, learned FCC)
    const std::tuple<BaspBattery::BatteryAgingData, uint32_t, uint32_t> cases[] = {
        {Record(100, {4400, 4400, 4400}), 0, 4400},
        {Record(100, {3000, 3000}), 0, 4500},  // two samples: design capacity
        {Record(501, {4500, 4500, 4500}), 1, 4500},
        {Record(100, {3900, 3800, 3700}), 2, 3800},
        {Record(1300, {3000, 3000, 3000}), 4, 3375},  // floor: 75 % of design
        {Record(100, {9, 9, 9, 9, 9}), 2, 3375},
    };
    for (const auto& [record, level, fcc] : cases) {
        auto battery = Event(Config(), record);
        ASSERT_NE(battery, nullptr);
        EXPECT_EQ(battery->Level(), level) << record.cycleCount;
        EXPECT_EQ(battery->LearnFcc(), fcc) << record.cycleCount;
    }
    EXPECT_TRUE(dev.HasLog("policy of current stage 0 is null\n"));  // level 0 sends nothing
    // More samples than the record can hold: only five count.
    auto data = Record(100, {4400, 4400, 4400, 4400, 4400});
    data.fccCount = 9;
    auto battery = Event(Config(), data);
    EXPECT_EQ(battery->LearnFcc(), 4400u);
    EXPECT_EQ(StoredDb().records_size(), 5);
}

TEST_F(BaspTest, DecrementIsGradedByWholeDaysAtMostThreeAndRoundedTowardsTheOldValue) {
    const Json::Value root = Config();    // 2000 uV per day, 10 mV step
    const auto level1 = Record(600, {});  // target 10 mV
    const auto level2 = Record(900, {});  // target 20 mV
    // (time, record, sent mV, stored uV)
    const std::tuple<uint32_t, BaspBattery::BatteryAgingData, uint32_t, uint32_t> steps[] = {
        {kT0, level1, 10, 10000},              // the first target at once
        {kT0 + kDay - 1, level2, 10, 10000},   // nothing within the first day
        {kT0 + kDay, level2, 10, 12000},       // on the way up: rounded down
        {kT0 + 30 * kDay, level2, 10, 18000},  // a month away moves three days only
        {kT0 + 31 * kDay, level2, 20, 20000},  // never beyond the target
        {kT0 + 32 * kDay, level1, 20, 18000},  // on the way down: rounded up
        {kT0 + 40 * kDay, level1, 20, 12000},
        {kT0 + 41 * kDay, level1, 10, 10000},
    };
    for (const auto& [now, record, mv, uv] : steps) {
        SetTime(now);
        Event(root, record);
        EXPECT_EQ(SentPolicy().ndcVdec, mv) << now - kT0;
        EXPECT_EQ(StoredDb().realpolicyrecs(0).ndcvdecuv(), uv) << now - kT0;
    }
    // The clock went back: the day count restarts from the new time.
    SetTime(kT0);
    Event(root, level2);
    EXPECT_EQ(StoredDb().realpolicyrecs(0).ndcvdecuv(), 10000u);
    EXPECT_EQ(StoredDb().realpolicyrecs(0).timestamp(), kT0);
    SetTime(kT0 + kDay);
    Event(root, level2);
    EXPECT_EQ(StoredDb().realpolicyrecs(0).ndcvdecuv(), 12000u);
}

TEST_F(BaspTest, CorruptStoredDecrementIsDiscardedAndTheTargetTakenAtOnce) {
    for (uint32_t stored : {300000u, 999u}) {
        BaspDb db;
        db.set_version("2.0");
        auto* rec = db.add_realpolicyrecs();
        rec->set_timestamp(kT0 - 10 * kDay);
        rec->set_ndcvdecuv(stored);
        StoreDb(db);
        Event(Config(), Record(900, {}));
        EXPECT_EQ(SentPolicy().ndcVdec, 20u) << stored;
        EXPECT_EQ(StoredDb().realpolicyrecs(0).ndcvdecuv(), 20000u) << stored;
    }
}

TEST_F(BaspTest, SwellAllowanceRisesByTenPerNewReadingAndUnlocksTheSwellStage) {
    BaspBattery battery("QBT41");
    Json::Value root = Config();
    ASSERT_EQ(battery.Init(root, Entry(root)), 0);
    const auto aged = Record(600, {});  // level 1; above the swell cycle threshold of 300
    WeekSwell().store(0.0255);
    battery.Update(aged);  // no decrement yet: no allowance
    EXPECT_EQ(battery.PolicyRec().noDecAswell, 0u);
    // (week swell, allowance, level)
    const std::tuple<double, uint32_t, uint32_t> readings[] = {
        {0.0255, 10, 1}, {0.0255, 10, 1},                   // a repeated reading counts once
        {0.0355, 20, 3},                                    // the swell stage needs 20
        {0.0405, 20, 3}, {0.0, 20, 3},    {0.0125, 20, 3},  // out of range or lower: kept
        {0.0395, 30, 3},
    };
    for (const auto& [swell, allowance, level] : readings) {
        WeekSwell().store(swell);
        battery.Update(aged);
        EXPECT_EQ(battery.PolicyRec().noDecAswell, allowance) << swell;
        EXPECT_EQ(battery.Level(), level) << swell;
    }
    EXPECT_EQ(StoredDb().realpolicyrecs(0).nodecaswell(), 30u);
    battery.Update(Record(299, {}));  // below the swell cycle threshold: cleared
    EXPECT_EQ(battery.PolicyRec().noDecAswell, 0u);
}

TEST_F(BaspTest, SwellReadingRaisesTheAllowanceOnceAcrossEventsAndRestarts) {
    const Json::Value root = Config();
    const auto aged = Record(600, {});  // level 1, past the swell cycle threshold
    Event(root, aged);                  // the first decrement: the allowance can start
    WeekSwell().store(0.025);
    for (int event = 0; event < 3; ++event) {  // each event builds its battery afresh
        Event(root, aged);
        EXPECT_EQ(StoredDb().realpolicyrecs(0).nodecaswell(), 10u) << event;
    }
    EXPECT_EQ(StoredDb().realpolicyrecs(0).lastswell(), 25u);
    WeekSwell().store(0.035);
    Event(root, aged);
    EXPECT_EQ(StoredDb().realpolicyrecs(0).nodecaswell(), 20u);

    // A record written before the last reading was kept loads with none: one raise more.
    BaspDb old = StoredDb();
    old.mutable_realpolicyrecs(0)->clear_lastswell();
    StoreDb(old);
    Event(root, aged);
    EXPECT_EQ(StoredDb().realpolicyrecs(0).nodecaswell(), 30u);
    Event(root, aged);
    EXPECT_EQ(StoredDb().realpolicyrecs(0).nodecaswell(), 30u);
}

TEST_F(BaspTest, LargeConfiguredDecrementIsNotWrappedToThirtyTwoBits) {
    Json::Value root = Config();
    for (Json::Value& dec : root["2.0"][0]["NonDcVoltDec"]) {
        dec = 5000000u;  // mV; 5e9 uV does not fit 32 bits
    }
    auto battery = Event(root, Record(600, {}));
    ASSERT_NE(battery, nullptr);
    EXPECT_EQ(SentPolicy().ndcVdec, 5000000u);
    EXPECT_EQ(battery->GetPolicy()->NonDcVoltDec, 5000000u);
}

}  // namespace
