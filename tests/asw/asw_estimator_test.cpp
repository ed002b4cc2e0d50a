// The anti-swelling battery and estimator on the sample device: the data file and its faults,
// the legacy log, a battery change, and a day closed at local midnight that selects a scene
// whose limits reach the limitators.
#include <stdlib.h>
#include <time.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <thread>

#include "asw/asw_battery.h"
#include "asw/asw_estimator.h"
#include "asw/asw_old.h"
#include "core/soh_configure.h"
#include "core/soh_week_swell.h"
#include "platform/host/soh_clock_test.h"
#include "protectors/dc_volt_limitator.h"
#include "protectors/limit_nodes.h"
#include "protectors/non_dc_vol_limitator.h"
#include "protectors/soc_limitator.h"
#include "tests/protectors/limitator_test_util.h"
#include "tests/support/fake_device.h"

namespace {

constexpr int64_t kSec = 1000000000LL;
constexpr int64_t kDay = 86400;
// 2023-11-14 23:59:00 in the test's time zone (UTC+8).
constexpr int64_t kBeforeMidnight = 1699977540;
constexpr const char* kDataFile = "/log/soh/asw_QBT41.dat";

// One stored day: `seconds` in the bin (25..35 degC, 4400..4450 mV], 80 % of it on the charger.
std::string DayText(int64_t start, int64_t seconds) {
    std::string rows;
    for (int r = 0; r < 5; ++r) {
        rows += std::string(r ? "," : "") + "[0,0,0,0," + (r == 1 ? std::to_string(seconds) : "0") +
                ",0]";
    }
    return "{\"Tstart\":" + std::to_string(start) + ",\"Tend\":" + std::to_string(start + seconds) +
           ",\"Tstat\":" + std::to_string(seconds) +
           ",\"Tusb_in\":" + std::to_string(seconds * 8 / 10) + ",\"Sim\":1,\"SwellTimes\":[" +
           rows + "]}";
}

// A data file with `closed` full days before today (which started an hour before kBeforeMidnight).
std::string DataFile(int closed, const std::string& addup = "{\"Tstart\":1690000000}") {
    std::string days;
    int64_t today = kBeforeMidnight - 3600;
    for (int i = closed; i > 0; --i) {
        days += DayText(today - i * kDay, kDay - 1) + ",";
    }
    days += DayText(today, 0);
    return "{\"AswPolicy\":\"3.1\",\"Vbat\":[4100,4200,4300,4400,4450],\"Temp\":[25,35,40,45],"
           "\"Scene\":0,\"TReport\":" +
           std::to_string(kBeforeMidnight - 3600) + ",\"Addup\":" + addup + ",\"Day\":[" + days +
           "]}";
}

class AswEstimatorTest : public FakeDeviceTest {
protected:
    void SetUp() override {
        dev.CopyTree("examples/device");
        SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
        setenv("TZ", "CST-8", 1);
        tzset();
        SohClockTest::SetManual(kBeforeMidnight * kSec);
    }
    static const Json::Value& Config() { return SOHConfigure::GetEstimatorsConfigure()["ASW"]; }
    static std::unique_ptr<AswBattery> Battery() {
        auto b = std::make_unique<AswBattery>(Config(), Config()["Battery"][0]);
        EXPECT_EQ(b->Init(true), 0u);
        return b;
    }
    // Declares the protectors and "ASW", starts its monitor and waits until it sleeps.
    static SOHEstimator* StartAsw() {
        ProtectorPool().Register("DcVoltLimitator", [](const char* n) -> SOHProtector* {
            return new DcVoltLimitator(n);
        });
        ProtectorPool().Register("NonDcVoltLimitator", [](const char* n) -> SOHProtector* {
            return new NonDcVolLimitator(n);
        });
        ProtectorPool().Register(
            "SocLimitator", [](const char* n) -> SOHProtector* { return new SocLimitator(n); });
        EstimatorPool().Register(
            "ASW", [](const char* n) -> SOHEstimator* { return new AswEstimator(n); });
        SOHEstimator* asw = EstimatorPool().GetObjectByName("ASW");
        if (asw != nullptr) {
            asw->StartMonitor();
            EXPECT_TRUE(Eventually([] { return SohClockTest::Sleepers() > 0; }));
        }
        return asw;
    }
    // Waits (real time) until `done` holds.
    static bool Eventually(const std::function<bool()>& done) {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!done()) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return true;
    }
};

}  // namespace

TEST_F(AswEstimatorTest, AWeekIsReadFromSevenClosedDaysOnlyAndNotPublishedAtStart) {
    dev.Write(kDataFile, DataFile(6));
    auto battery = Battery();
    EXPECT_EQ(battery->GetWeek(), nullptr);

    dev.Write(kDataFile, DataFile(7));
    battery = Battery();
    ASSERT_NE(battery->GetWeek(), nullptr);
    EXPECT_EQ(WeekSwell().load(), 0.0);  // published at the first day close only
    EXPECT_EQ((*battery->GetToday())["Tstart"].asInt64(), kBeforeMidnight - 3600);
}

TEST_F(AswEstimatorTest, FaultyDataFilesRestartTheAccountingWithTheirMessage) {
    const std::string good = DataFile(1);
    struct Case {
        std::string text;
        std::string message;
    } cases[] = {
        {good.substr(0, good.size() / 2), "read asw data file failed\n"},
        {"not json at all", "read asw data file failed\n"},
        {"[1, 2]", "asw data is empty\n"},
        {"{\"Addup\": 5, \"Day\": []}", "asw addup data object type is error\n"},
        {"{\"Addup\": {}, \"Day\": 3}", "asw day data object type is not array\n"},
    };
    for (const Case& c : cases) {
        dev.Write(kDataFile, c.text);
        auto battery = Battery();
        EXPECT_TRUE(dev.HasLog(c.message)) << c.text;
        ASSERT_NE(battery->GetToday(), nullptr);
        EXPECT_EQ(battery->Update(), 0u);
    }
    // Tables of another shape (or axes changed since) restart from zero; counters are kept.
    dev.Write(kDataFile, DataFile(1, "{\"Tstat\":500,\"SwellTimes\":[[1,2],[3,4]]}"));
    auto battery = Battery();
    EXPECT_EQ(battery->GetAddup()->GetStatSeconds(), 500u);
    EXPECT_TRUE(battery->GetAddup()->GetTimeTable().IsLegal());
    EXPECT_EQ(battery->GetAddup()->GetTimeTable().Table()[1][4].asInt(), 0);
}

TEST_F(AswEstimatorTest, LegacyLogIsCreditedOnceAndDroppedWithABatteryChange) {
    std::string log(AswOld::kFileSize, '\0');
    const int32_t seconds = 2 * kDay;  // two days in the hottest, highest bin
    memcpy(&log[AswOld::kTableOffset + (5 * 6 + 5) * 4], &seconds, 4);
    dev.Write(AswNodes::kOldLog, log.substr(0, log.size() - 1));
    EXPECT_EQ(AswOld::GetAswell(), 0.0f);
    EXPECT_TRUE(dev.HasLog("asw old file size 415 is error\n"));

    dev.Write(AswNodes::kOldLog, log);
    auto battery = Battery();  // no data file yet: the legacy swell is carried over
    EXPECT_NEAR((*battery->GetAddup())["OldAswell"].asDouble(), 2 * 0.17348, 1e-6);
    EXPECT_NEAR((*battery->GetAddup())["Aswell"].asDouble(), 2 * 0.17348, 1e-6);

    dev.Write(kDataFile, DataFile(7));
    dev.Write("/sys/devices/platform/vorlan_batt_soh/quen_battery_removed", "1");
    battery = Battery();
    EXPECT_TRUE(dev.HasLog("battery changed clear ASW record\n"));
    EXPECT_FALSE(dev.Exists(kDataFile));
    EXPECT_FALSE(dev.Exists(AswNodes::kOldLog));
    EXPECT_EQ(battery->GetWeek(), nullptr);
    EXPECT_TRUE((*battery->GetAddup())["OldAswell"].isNull());
}

TEST_F(AswEstimatorTest, MidnightClosesTheDaySelectsASceneAndDemandsItsLimits) {
    dev.Write(kDataFile, DataFile(7));
    NodeTap vterm(dev, LimitNodes::kVtermDec);
    NodeTap soc(dev, LimitNodes::kSocControl);
    SOHEstimator* asw = StartAsw();
    ASSERT_NE(asw, nullptr);
    EXPECT_EQ(WeekSwell().load(), 0.0);

    SohClockTest::Advance(90 * kSec);  // the next pass runs after local midnight
    ASSERT_TRUE(Eventually([&] { return dev.Read(AswNodes::kDmdReport) == "asw 930101"; }));
    std::string vterms;
    std::string socs;
    ASSERT_TRUE(Eventually([&] {
        vterms += vterm.Take();
        socs += soc.Take();
        return vterms.find("quen dcp 50") != std::string::npos &&
               socs.find("quen 1 85 90") != std::string::npos;
    })) << vterms
        << "|" << socs;
    EXPECT_NE(vterms.find("quen lvc 50"), std::string::npos);
    // The closed day (barely any time in a swelling bin) replaced the oldest one in the week.
    EXPECT_NEAR(WeekSwell().load(), 6 * 0.012 * (kDay - 1) / kDay, 1e-4);
    std::vector<Json::Value> events = dev.BigData();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0]["id"].asUInt(), AswBattery::kWeekEvent);
    EXPECT_EQ(events[1]["id"].asUInt(), AswBattery::kAddupEvent);
    Json::Value saved;
    ASSERT_TRUE(Json::Reader().parse(dev.Read(kDataFile), saved));
    EXPECT_EQ(saved["Day"].size(), 8u);
    EXPECT_EQ(saved["Scene"].asUInt(), 1u);
    EXPECT_EQ(saved["ConditonGroupNo"].asUInt(), 1u);

    // The user turns protection off: the loop wakes at once and lifts the limits.
    EXPECT_EQ(asw->SetPara("smart_charge_enable", "1"), 0);
    ASSERT_TRUE(Eventually([&] {
        vterms += vterm.Take();
        return vterms.find("quen dcp 0") != std::string::npos;
    })) << vterms;
    SOHConfigure::CloseScheme("ASW");
    asw->SetPara("smart_charge_enable", "1");
    // Announced under the framework's lock: once seen there, the monitor is done with it.
    ASSERT_TRUE(Eventually([] {
        std::lock_guard<std::mutex> lock(EstimatorStateLock);
        return EstimatorStateEvents > 0;
    }));
    EXPECT_EQ(asw->GetRunState(), "stop");
}

TEST_F(AswEstimatorTest, SceneChangeInChargerModeSendsNoReports) {
    dev.SetProperty("ro.bootmode", "charger");
    dev.Write(kDataFile, DataFile(7));
    ASSERT_NE(StartAsw(), nullptr);
    SohClockTest::Advance(90 * kSec);
    ASSERT_TRUE(Eventually([&] { return dev.Read(AswNodes::kDmdReport) == "asw 930101"; }));
    ASSERT_TRUE(Eventually([&] {
        Json::Value saved;
        return Json::Reader().parse(dev.Read(kDataFile), saved) && saved["Scene"].asUInt() == 1u;
    }));
    EXPECT_TRUE(dev.BigData().empty());
}
