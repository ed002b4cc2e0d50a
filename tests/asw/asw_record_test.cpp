// The anti-swelling battery's data file at start: the week read from the stored days, a change
// of the swell table's axes, damaged days, the order of Init's steps, and the save at a change
// of scene.
#include <stdlib.h>
#include <time.h>

#include <vector>

#include "asw/asw_battery.h"
#include "asw/asw_common.h"
#include "core/soh_configure.h"
#include "core/soh_log.h"
#include "core/soh_week_swell.h"
#include "platform/host/soh_clock_test.h"
#include "tests/support/fake_device.h"

namespace {

constexpr int64_t kSec = 1000000000LL;
constexpr int64_t kDay = 86400;
// 2023-11-14 23:59:00 in the test's time zone (UTC+8); today started an hour before.
constexpr int64_t kBeforeMidnight = 1699977540;
constexpr int64_t kToday = kBeforeMidnight - 3600;
constexpr const char* kDataFile = "/log/soh/asw_QBT41.dat";
// Swell per day of the bin (25..35 degC, 4400..4450 mV] in the sample configuration.
constexpr double kBinRate = 0.012;

// A stored day: `seconds` in the bin above, `usbPercent` of them on the charger.
Json::Value Day(int64_t start, int64_t seconds, int usbPercent = 80) {
    Json::Value day(Json::objectValue);
    day["Tstart"] = Json::Int64(start);
    day["Tend"] = Json::Int64(start + seconds);
    day["Tstat"] = Json::Int64(seconds);
    day["Tusb_in"] = Json::Int64(seconds * usbPercent / 100);
    day["Sim"] = 1;
    Json::Value rows(Json::arrayValue);
    for (int r = 0; r < 5; ++r) {
        Json::Value row(Json::arrayValue);
        for (int c = 0; c < 6; ++c) {
            row.append(Json::Int64(r == 1 && c == 4 ? seconds : 0));
        }
        rows.append(row);
    }
    day["SwellTimes"] = rows;
    return day;
}

// `closed` full days before today, oldest first, then today (started at kToday, nothing yet).
Json::Value Days(int closed, int usbPercent = 80) {
    Json::Value days(Json::arrayValue);
    for (int i = closed; i > 0; --i) {
        days.append(Day(kToday - i * kDay, kDay - 1, usbPercent));
    }
    days.append(Day(kToday, 0));
    return days;
}

std::string File(const Json::Value& days, const Json::Value& extra = Json::Value()) {
    Json::Value root(Json::objectValue);
    root["AswPolicy"] = "3.1";
    root["Vbat"] = Json::Value(Json::arrayValue);
    for (int v : {4100, 4200, 4300, 4400, 4450}) {
        root["Vbat"].append(v);
    }
    root["Temp"] = Json::Value(Json::arrayValue);
    for (int t : {25, 35, 40, 45}) {
        root["Temp"].append(t);
    }
    root["Scene"] = 0;
    root["TReport"] = Json::Int64(kToday);
    root["Addup"]["Tstart"] = 1690000000;
    root["Day"] = days;
    for (const std::string& key : extra.getMemberNames()) {
        root[key] = extra[key];
    }
    return Json::FastWriter().write(root);
}

bool AllZero(const Json::Value& table) {
    for (const Json::Value& row : table) {
        for (const Json::Value& cell : row) {
            if (cell.asDouble() != 0.0) {
                return false;
            }
        }
    }
    return table.isArray() && !table.empty();
}

class AswRecordTest : public FakeDeviceTest {
protected:
    void SetUp() override {
        dev.CopyTree("examples/device");
        SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
        setenv("TZ", "CST-8", 1);
        tzset();
        Asw::ResetStub();
        SohClockTest::SetManual(kBeforeMidnight * kSec);
        WeekSwell().store(-1.0);  // anything published replaces it
    }
    void TearDown() override { Asw::ResetStub(); }
    static const Json::Value& Config() { return SOHConfigure::GetEstimatorsConfigure()["ASW"]; }
    static std::unique_ptr<AswBattery> Battery() {
        auto b = std::make_unique<AswBattery>(Config(), Config()["Battery"][0]);
        EXPECT_EQ(b->Init(true), 0u);
        return b;
    }
    Json::Value Saved() {
        Json::Value saved;
        EXPECT_TRUE(Json::Reader().parse(dev.Read(kDataFile), saved));
        return saved;
    }
};

}  // namespace

TEST_F(AswRecordTest, TheWeekAtStartIsTheFirstSevenStoredDaysNeitherUpdatedNorPublished) {
    std::unique_ptr<AswBattery> battery;
    for (int closed : {7, 8, 9}) {
        const Json::Value days = Days(closed);
        dev.Write(kDataFile, File(days));
        battery = Battery();
        const AswDataObject* week = battery->GetWeek();
        ASSERT_NE(week, nullptr) << closed;
        // Day[0] to Day[6] as stored, even with more days in the file; no time credited since.
        EXPECT_EQ((*week)["Tstart"], days[0]["Tstart"]) << closed;
        EXPECT_EQ((*week)["Tend"], days[6]["Tend"]) << closed;
        EXPECT_EQ(week->GetStatSeconds(), 7 * (kDay - 1)) << closed;
        EXPECT_EQ(week->GetSwellValue(), 0.0) << closed;
        EXPECT_EQ((*week)["Aswell"].asDouble(), 0.0) << closed;
        EXPECT_EQ(battery->Update(), 0u);  // a pass before midnight closes no day
        EXPECT_EQ(WeekSwell().load(), -1.0) << closed;
    }

    // The first day close builds the week of the last seven days, updates and publishes it.
    SohClockTest::Advance(120 * kSec);
    EXPECT_EQ(battery->Update(), 0u);
    // Six stored days and the day just closed (barely a minute in the bin).
    EXPECT_NEAR(WeekSwell().load(), 6 * kBinRate * (kDay - 1) / kDay, 2e-5);
    EXPECT_GT(battery->GetWeek()->GetSwellValue(), 0.0);
    EXPECT_EQ(Saved()["Day"].size(), 8u);
}

TEST_F(AswRecordTest, ChangedAxesRestartEveryStoredTableAndKeepTheCounters) {
    Json::Value days = Days(7);
    days[7] = Day(kToday, 500);
    Json::Value extra;
    extra["Vbat"] = Json::Value(Json::arrayValue);
    for (int v : {4000, 4100, 4200, 4300, 4350}) {  // same shape, other edges
        extra["Vbat"].append(v);
    }
    extra["Addup"] = Day(kToday - 30 * kDay, 9000);
    dev.Write(kDataFile, File(days, extra));
    auto battery = Battery();
    for (const AswDataObject* object : {battery->GetAddup(), battery->GetToday()}) {
        EXPECT_TRUE(AllZero(object->GetTimeTable().Table()));
    }
    ASSERT_NE(battery->GetWeek(), nullptr);
    EXPECT_TRUE(AllZero(battery->GetWeek()->GetTimeTable().Table()));
    EXPECT_EQ(battery->GetWeek()->GetStatSeconds(), 7 * (kDay - 1));
    EXPECT_EQ(battery->GetAddup()->GetStatSeconds(), 9000u);
    EXPECT_EQ(battery->GetToday()->GetStatSeconds(), 500u);

    // Saved back at the day close on the configured axes: the stored days' tables restarted too.
    SohClockTest::Advance(AswBattery::kSaveIntervalSeconds * kSec);
    EXPECT_EQ(battery->Update(), 0u);
    Json::Value saved = Saved();
    EXPECT_EQ(saved["Vbat"][0].asInt(), 4100);
    ASSERT_EQ(saved["Day"].size(), 8u);
    for (Json::ArrayIndex i = 0; i < 6; ++i) {
        EXPECT_TRUE(AllZero(saved["Day"][i]["SwellTimes"])) << i;
        EXPECT_EQ(saved["Day"][i]["Tstat"].asInt64(), kDay - 1) << i;
    }
    EXPECT_GE(saved["Day"][6]["Tstat"].asInt64(), 500);
}

TEST_F(AswRecordTest, ADayThatIsNotAnObjectCostsOnlyItself) {
    struct Case {
        const char* what;
        Json::Value days;
        unsigned todayStat;  // today's counters after loading
        int64_t weekStat;    // -1: no week
        size_t saved;        // days written at the day close: closed ones, then the new today
    };
    Json::Value fewBad = Days(2);
    fewBad[0] = "damaged";
    fewBad[2] = Day(kToday, 1234);
    Json::Value weekBad = Days(8);
    weekBad[2] = 7;
    weekBad[8] = Day(kToday, 1234);
    Json::Value todayBad = Days(2);
    todayBad[2] = Json::Value();
    const Case cases[] = {
        {"a closed day of few", fewBad, 1234, -1, 3},
        {"a day of the week", weekBad, 1234, 6 * (kDay - 1), 8},
        {"today", todayBad, 0, -1, 4},
    };
    for (const Case& c : cases) {
        SohClockTest::SetManual(kBeforeMidnight * kSec);
        dev.Write(kDataFile, File(c.days));
        auto battery = Battery();
        ASSERT_NE(battery->GetToday(), nullptr) << c.what;
        EXPECT_EQ(battery->GetToday()->GetStatSeconds(), c.todayStat) << c.what;
        if (c.weekStat < 0) {
            EXPECT_EQ(battery->GetWeek(), nullptr) << c.what;
        } else {
            ASSERT_NE(battery->GetWeek(), nullptr) << c.what;
            EXPECT_EQ(battery->GetWeek()->GetStatSeconds(), c.weekStat) << c.what;
        }
        EXPECT_EQ(battery->Update(), 0u);  // a new today starts now
        SohClockTest::Advance(120 * kSec);
        EXPECT_EQ(battery->Update(), 0u);
        const Json::Value saved = Saved()["Day"];
        ASSERT_EQ(saved.size(), c.saved) << c.what;
        EXPECT_GE(saved[saved.size() - 2]["Tstat"].asUInt(), c.todayStat) << c.what;
    }
    EXPECT_EQ(dev.CountLog("asw day data object item type is not object\n"), 2);
    EXPECT_EQ(dev.CountLog("asw day data object create failed\n"), 1);
}

TEST_F(AswRecordTest, InitCreatesTheDataBeforeCheckingTheScenes) {
    // No data file and no scene array: reported, the battery runs without scenes.
    Json::Value config = Config();
    config["Battery"][0]["AswPolicy"] = "3.9";
    AswBattery noScenes(config, config["Battery"][0]);
    EXPECT_EQ(noScenes.Init(true), 0u);
    EXPECT_TRUE(dev.HasLog("asw scene configure is null\n"));
    EXPECT_EQ(noScenes.GetSceneNo(), 0u);

    // A changed battery's records go even when the scene configuration then fails Init.
    dev.Write(kDataFile, File(Days(7)));
    dev.Write("/sys/devices/platform/vorlan_batt_soh/quen_battery_removed", "1");
    config = Config();
    config["Battery"][0].removeMember("NormalSceneDmdNo");
    AswBattery noDmd(config, config["Battery"][0]);
    EXPECT_EQ(noDmd.Init(true), Asw::kFail);
    EXPECT_TRUE(dev.HasLog("battery changed clear ASW record\n"));
    EXPECT_TRUE(dev.HasLog("asw battery not configure normal scene dmd no\n"));
    EXPECT_FALSE(dev.Exists(kDataFile));
}

// The restored scene is left at the first pass (a week off the charger), outside a day close:
// the new scene number is saved at once rather than at the next regular save.
TEST_F(AswRecordTest, ALeftSceneIsSavedAtOnceAndReportedWithTheStoredWeek) {
    Json::Value extra;
    extra["Scene"] = 1;
    extra["ConditonGroupNo"] = 1;
    dev.Write(kDataFile, File(Days(7, 20), extra));
    auto battery = Battery();
    EXPECT_EQ(battery->GetSceneNo(), 1u);
    EXPECT_TRUE(battery->GetSceneProtectEnable());

    EXPECT_EQ(battery->Update(), 0u);
    EXPECT_EQ(battery->GetSceneNo(), 0u);
    EXPECT_EQ(dev.Read(AswNodes::kDmdReport), "asw 930100");
    Json::Value saved = Saved();
    EXPECT_EQ(saved["Scene"].asUInt(), 0u);
    EXPECT_FALSE(saved.isMember("ConditonGroupNo"));
    std::vector<Json::Value> events = dev.BigData();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0]["id"].asUInt(), AswBattery::kWeekEvent);
    EXPECT_EQ(EventField(events[0], "SWELP").asDouble(), 0.0);  // the week has not been updated
    EXPECT_NEAR(EventField(events[0], "CHAREIGN").asDouble(), 0.2, 1e-4);
}

// The closed days are read once at start and then kept: a data file removed while the daemon
// runs costs no day at the next day close.
TEST_F(AswRecordTest, ClosedDaysOutliveTheirFileUntilTheNextSave) {
    dev.Write(kDataFile, File(Days(7)));
    auto battery = Battery();
    EXPECT_EQ(battery->Update(), 0u);
    dev.Remove(kDataFile);
    SohClockTest::Advance(120 * kSec);
    EXPECT_EQ(battery->Update(), 0u);
    ASSERT_NE(battery->GetWeek(), nullptr);
    EXPECT_NEAR(WeekSwell().load(), 6 * kBinRate * (kDay - 1) / kDay, 2e-5);
    const Json::Value days = Saved()["Day"];
    ASSERT_EQ(days.size(), 8u);
    EXPECT_EQ(days[0]["Tstart"].asInt64(), kToday - 6 * kDay);
}

// Every fault of the battery object fails Init with its message; a battery of another model
// is passed over silently. A battery without a name is refused: its data file would have none.
TEST_F(AswRecordTest, BatteryConfigurationFaultsFailInitWithTheirMessages) {
    using Edit = void (*)(Json::Value & config, Json::Value & battery);
    struct Case {
        Edit edit;
        const char* message;
    } cases[] = {
        {[](Json::Value&, Json::Value& b) { b["AswPolicy"] = 3; },
         "asw battery not configure policy\n"},
        {[](Json::Value&, Json::Value& b) { b["AswPolicy"] = ""; },
         "asw compatible version is empty\n"},
        {[](Json::Value&, Json::Value& b) { b["AswPolicy"] = "4.1"; },
         "asw version 4 is not compatible\n"},
        {[](Json::Value&, Json::Value& b) { b.removeMember("SwellTabe"); },
         "asw battery not configure swelltable\n"},
        {[](Json::Value&, Json::Value& b) { b["SwellTabe"] = "Missing"; },
         "asw battery swelltable is not legal\n"},
        {[](Json::Value& c, Json::Value&) { c["SwellTable_QBT41"]["Table"][2].resize(5); },
         "asw battery swelltable is not legal\n"},
        {[](Json::Value& c, Json::Value&) { c["SwellTable_QBT41"].removeMember("Table"); },
         "asw battery swelltable is not legal\n"},
        {[](Json::Value&, Json::Value& b) { b["SimSupport"] = -1; },
         "asw battery not configure simsupport\n"},
        {[](Json::Value&, Json::Value& b) { b["NormalSceneDmdNo"] = "930100"; },
         "asw battery not configure normal scene dmd no\n"},
        {[](Json::Value&, Json::Value& b) { b.removeMember("Name"); },
         "asw battery not configure name\n"},
        {[](Json::Value&, Json::Value& b) { b["Model"] = "QBT99"; }, nullptr},
    };
    for (const Case& c : cases) {
        Json::Value config = Config();
        c.edit(config, config["Battery"][0]);
        const int logged = dev.CountLogContaining("asw");
        AswBattery battery(config, config["Battery"][0]);
        EXPECT_EQ(battery.Init(true), Asw::kFail) << (c.message ? c.message : "other model");
        if (c.message != nullptr) {
            EXPECT_TRUE(dev.HasLog(c.message)) << c.message;
        } else {
            EXPECT_EQ(dev.CountLogContaining("asw"), logged);
        }
    }
}
