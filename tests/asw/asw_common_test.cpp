// The anti-swelling helpers that touch the outside world: the SIM properties, the debug stub
// (time speed and device values), the clock-not-set wait and the 20-minute save interval.
#include <stdlib.h>
#include <time.h>

#include <chrono>
#include <thread>

#include "asw/asw_battery.h"
#include "asw/asw_common.h"
#include "asw/asw_estimator.h"
#include "core/soh_configure.h"
#include "core/soh_log.h"
#include "platform/host/soh_clock_test.h"
#include "tests/support/fake_device.h"

namespace {

constexpr int64_t kSec = 1000000000LL;
constexpr int64_t kNoon = 1699934400;  // 2023-11-14 12:00:00 UTC+8
constexpr const char* kDataFile = "/log/soh/asw_QBT41.dat";

class AswOutsideTest : public FakeDeviceTest {
protected:
    void SetUp() override {
        dev.CopyTree("examples/device");
        SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
        setenv("TZ", "CST-8", 1);
        tzset();
        Asw::ResetStub();
        SohClockTest::SetManual(kNoon * kSec);
    }
    void TearDown() override { Asw::ResetStub(); }
    static const Json::Value& Config() { return SOHConfigure::GetEstimatorsConfigure()["ASW"]; }
    static std::string Sim(int slot) { return "odm.ril.vn_modem" + std::to_string(slot) + ".rssi"; }
};

bool Eventually(bool (*done)(FakeDevice&), FakeDevice& dev) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!done(dev)) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

}  // namespace

TEST_F(AswOutsideTest, SimIsPluggedInWhenAnySlotBeforeAnEmptyOneHasASignal) {
    dev.Remove("/properties/" + Sim(0));
    EXPECT_FALSE(Asw::IsSimPlugIn());  // no property at all
    dev.SetProperty(Sim(0), "-1");
    dev.SetProperty(Sim(1), "-1");
    dev.SetProperty(Sim(2), "-1");
    EXPECT_FALSE(Asw::IsSimPlugIn());
    dev.SetProperty(Sim(2), "-93");
    EXPECT_TRUE(Asw::IsSimPlugIn());
    EXPECT_TRUE(dev.HasLog("odm.ril.vn_modem2.rssi property value is valid\n"));
    // An empty slot ends the search: later slots are not asked.
    dev.SetProperty(Sim(1), "");
    EXPECT_FALSE(Asw::IsSimPlugIn());
}

TEST_F(AswOutsideTest, StubNodesDriveTheClockAndTheDeviceValues) {
    dev.Write(AswNodes::kBatteryVoltageNow, "3900000\n");
    dev.Write(AswNodes::kTimeSpeed, "60\n");
    dev.Write(AswNodes::kStubData, "1 5 4420000 385\n");
    Asw::UpdateStub();
    EXPECT_TRUE(dev.HasLog("asw time speed 60\n"));
    EXPECT_TRUE(dev.HasLog("asw demon data 1 5 4420000 385\n"));
    EXPECT_EQ(Asw::ReadDeviceStrToT<unsigned>(AswNodes::kBatteryVoltageNow), 4420000u);
    EXPECT_EQ(Asw::ReadDeviceStrToT<float>(AswNodes::kBatteryTemp), 385.0f);
    EXPECT_EQ(Asw::ReadDeviceStrToT<unsigned>(AswNodes::kChargerType), 5u);

    EXPECT_EQ(Asw::GetTimeSpeed(), 60u);

    // Stub mode off: the device answers again; a speed of 0 is a speed of 1.
    dev.Write(AswNodes::kTimeSpeed, "0\n");
    dev.Write(AswNodes::kStubData, "0 5 4420000 385\n");
    Asw::UpdateStub();
    EXPECT_EQ(Asw::ReadDeviceStrToT<unsigned>(AswNodes::kBatteryVoltageNow), 3900000u);
    EXPECT_EQ(Asw::GetTimeSpeed(), 1u);
}

TEST_F(AswOutsideTest, StubStaysOffWhenANodeIsMissingAtTheFirstPass) {
    dev.Remove(AswNodes::kStubData);
    dev.Write(AswNodes::kTimeSpeed, "60\n");
    Asw::UpdateStub();  // no data node: the stub is off for the life of the process
    dev.Write(AswNodes::kStubData, "1 5 4420000 385\n");
    Asw::UpdateStub();
    EXPECT_EQ(Asw::GetTimeSpeed(), 1u);
    EXPECT_FALSE(Asw::IsStubMode());
}

TEST_F(AswOutsideTest, DataIsSavedAtMostEveryTwentyMinutes) {
    AswBattery battery(Config(), Config()["Battery"][0]);
    ASSERT_EQ(battery.Init(true), 0u);
    const std::string saved = "asw save data to file success\n";
    EXPECT_EQ(battery.Update(), 0u);
    EXPECT_EQ(dev.CountLog(saved), 0);
    SohClockTest::Advance(1199 * kSec);
    EXPECT_EQ(battery.Update(), 0u);
    EXPECT_EQ(dev.CountLog(saved), 0);
    SohClockTest::Advance(1 * kSec);
    EXPECT_EQ(battery.Update(), 0u);
    EXPECT_EQ(dev.CountLog(saved), 1);
    Json::Value data;
    ASSERT_TRUE(Json::Reader().parse(dev.Read(kDataFile), data));
    EXPECT_EQ(data["Day"].size(), 1u);
    EXPECT_GE(data["Day"][0]["Tstat"].asUInt(), 1200u);

    // A clock set back restarts the interval from the new instant.
    SohClockTest::SetManual((kNoon - 3600) * kSec);
    EXPECT_EQ(battery.Update(), 0u);
    SohClockTest::Advance(1199 * kSec);
    EXPECT_EQ(battery.Update(), 0u);
    EXPECT_EQ(dev.CountLog(saved), 1);
}

TEST_F(AswOutsideTest, DebugSwellIsAddedToEverySwell) {
    AswEstimator asw("ASW");
    AswBattery battery(Config(), Config()["Battery"][0]);
    ASSERT_EQ(battery.Init(true), 0u);
    const double before = (*battery.GetToday())["Aswell"].asDouble();
    EXPECT_EQ(asw.SetPara("dbg_asw_aswell_add", "0.25"), 0);
    EXPECT_NEAR((*battery.GetToday())["Aswell"].asDouble(), before + 0.25, 1e-12);
    EXPECT_NEAR((*battery.GetAddup())["Aswell"].asDouble(), before + 0.25, 1e-12);
    EXPECT_EQ(asw.SetPara("dbg_asw_aswell_add", "x"), -1);
    std::string value;
    EXPECT_EQ(asw.GetPara("dbg_asw_aswell_add", value), -1);
}

TEST_F(AswOutsideTest, NothingIsAccountedBeforeTheClockIsSet) {
    SohClockTest::SetManual(1500000000LL * kSec);  // 2017: the clock has not been set yet
    EstimatorPool().Register("ASW",
                             [](const char* n) -> SOHEstimator* { return new AswEstimator(n); });
    SOHEstimator* asw = EstimatorPool().GetObjectByName("ASW");
    ASSERT_NE(asw, nullptr);
    asw->StartMonitor();
    ASSERT_TRUE(Eventually([](FakeDevice&) { return SohClockTest::Sleepers() > 0; }, dev));
    for (int i = 0; i < 5; ++i) {
        SohClockTest::Advance(kSec);
        ASSERT_TRUE(Eventually([](FakeDevice&) { return SohClockTest::Sleepers() > 0; }, dev));
    }
    EXPECT_FALSE(dev.Exists(kDataFile));
    EXPECT_EQ(dev.CountLogContaining("asw save data"), 0);

    // The clock is set: the next pass accounts from the new instant on.
    SohClockTest::SetManual(kNoon * kSec);
    SohClockTest::Advance(kSec);
    SohClockTest::Advance(1200 * kSec);  // the first pass has run; the next one saves
    ASSERT_TRUE(
        Eventually([](FakeDevice& d) { return d.HasLog("asw save data to file success\n"); }, dev));
    Json::Value data;
    ASSERT_TRUE(Json::Reader().parse(dev.Read(kDataFile), data));
    EXPECT_GE(data["Day"][0]["Tstart"].asInt64(), kNoon);
    SOHConfigure::CloseScheme("ASW");
    asw->SetPara("smart_charge_enable", "0");
    ASSERT_TRUE(Eventually(
        [](FakeDevice&) {
            std::lock_guard<std::mutex> lock(EstimatorStateLock);
            return EstimatorStateEvents > 0;
        },
        dev));
}

TEST_F(AswOutsideTest, APassSamplesOnceForBothObjectsAndTheSavedRecordReloads) {
    AswBattery battery(Config(), Config()["Battery"][0]);
    ASSERT_EQ(battery.Init(true), 0u);
    const std::string simValid = Sim(0) + " property value is valid\n";
    const int before = dev.CountLog(simValid);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(battery.Update(), 0u);
        SohClockTest::Advance(30 * kSec);
        dev.Write(AswNodes::kBatteryVoltageNow, std::to_string(4300000 + 100000 * i) + "\n");
    }
    EXPECT_EQ(dev.CountLog(simValid) - before, 3);  // one SIM check per pass, not one per object
    // History and today accounted the same samples.
    EXPECT_EQ(battery.GetAddup()->GetTimeTable().Table(),
              battery.GetToday()->GetTimeTable().Table());

    SohClockTest::Advance(1200 * kSec);
    EXPECT_EQ(battery.Update(), 0u);
    AswBattery reloaded(Config(), Config()["Battery"][0]);
    ASSERT_EQ(reloaded.Init(true), 0u);
    EXPECT_EQ(reloaded.GetAddup()->GetStatSeconds(), battery.GetAddup()->GetStatSeconds());
    // Same numbers; the kinds may differ (a parsed 30 is signed, a counted one unsigned).
    Json::StreamWriterBuilder compact;
    compact["indentation"] = "";
    EXPECT_EQ(Json::writeString(compact, reloaded.GetToday()->GetTimeTable().Table()),
              Json::writeString(compact, battery.GetToday()->GetTimeTable().Table()));
}
