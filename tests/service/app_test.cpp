// The app bridge: requests to limit lines, value validation, heartbeats on the manual clock,
// and restoring recorded limits at start.
#include <chrono>
#include <thread>

#include "core/soh_configure.h"
#include "core/soh_log.h"
#include "daemon/soh_declare.h"
#include "platform/host/soh_clock_test.h"
#include "service/app_estimator.h"
#include "tests/support/fake_device.h"

namespace {

constexpr const char* kIchgRatio = "/sys/class/vn_power/interface/ichg_ratio";
constexpr const char* kIchgLimit = "/sys/class/vn_power/interface/ichg_limit";
constexpr const char* kVtermDec = "/sys/class/vn_power/interface/vterm_dec";
constexpr const char* kCoulVdec = "/sys/devices/platform/vorlan_batt_soh/basp/basp_coul_vdec";
constexpr const char* kSocCtrl = "/sys/class/vn_power/soc_control/control";
constexpr const char* kSocStrategy = "/sys/class/vn_power/soc_control/strategy";
constexpr const char* kStatus = "/sys/devices/platform/vorlan_batt_soh/iscd/iscd_status";
constexpr int64_t kSec = 1000000000LL;

class AppTest : public FakeDeviceTest {
protected:
    void SetUp() override {
        dev.CopyTree("examples/device");
        SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
        SohClockTest::SetManual(1700000000LL * kSec);
        DeclearEstimators();
        DeclearProtectors();
    }
    AppEstimator* App() {
        return static_cast<AppEstimator*>(EstimatorPool().GetObjectByName("APP"));
    }
    // Clears a node so that the next write can be read alone.
    void Clear(const char* node) { dev.Write(node, ""); }
    // Lets the heartbeat monitor take one 10-second step and waits until it has logged it
    // and gone back to sleep.
    void Step() {
        WaitForSleeper();
        int before = dev.CountLogContaining("heartbeat of ");
        SohClockTest::Advance(AppEstimator::kBeatStepSeconds * kSec);
        for (int i = 0; i < 5000 && dev.CountLogContaining("heartbeat of ") == before; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        WaitForSleeper();
    }
    void WaitForSleeper() {
        for (int i = 0; i < 5000 && SohClockTest::Sleepers() == 0; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        ASSERT_EQ(SohClockTest::Sleepers(), 1);
    }
};

TEST_F(AppTest, CurrentRequestsReachTheirNodeAndDefaultsStopTheHeartbeat) {
    AppEstimator* app = App();
    Clear(kIchgRatio);
    EXPECT_EQ(app->SetPara("ichg_ratio", "all 60"), 0);
    EXPECT_EQ(dev.Read(kIchgRatio), "quen all 60");
    EXPECT_TRUE(app->IsBeatRunning("DcCurLimitator"));
    EXPECT_EQ(app->SetPara("ichg_ratio", "all 100"), 0);
    EXPECT_FALSE(app->IsBeatRunning("DcCurLimitator"));

    Clear(kIchgLimit);
    EXPECT_EQ(app->SetPara("ichg_limit", "all 1500\n"), 0);
    EXPECT_EQ(dev.Read(kIchgLimit), "quen all 1500");
    std::string src, value;
    ASSERT_EQ(SOHConfigure::GetLimitRecord("NonDcCurLimitator", src, value), 0);
    EXPECT_EQ(src + " " + value, "APP 1500");
}

TEST_F(AppTest, MalformedValuesAreRefusedAndDemandNothing) {
    AppEstimator* app = App();
    Clear(kIchgLimit);
    for (const char* bad : {"lvc 60", "all", "all 2147483648", "all -2147483649", "all --1",
                            "all -", "all 6x", "", "all 1 2", "60"}) {
        EXPECT_EQ(app->SetPara("ichg_limit", bad), -1) << bad;
    }
    for (const char* bad : {"2a", "", "-1", " ", "99999999999"}) {
        EXPECT_EQ(app->SetPara("batt_status", bad), -1) << bad;
    }
    for (const char* bad : {"", "2", "2 80", "2 80 60 1", "2 80 x", "2 -80 60"}) {
        EXPECT_EQ(app->SetPara("soc_control", bad), -1) << bad;
    }
    EXPECT_TRUE(dev.HasLog("soc control value 2 80 60 1 illegal\n"));
    EXPECT_EQ(app->SetPara("vterm_dec", "xyz 40"), -1);
    EXPECT_EQ(app->SetPara("smart_charge_enable", "2"), -1);
    EXPECT_EQ(app->SetPara("no_such_para", "1"), -1);
    std::string v;
    EXPECT_EQ(app->GetPara("ichg_limit", v), -1);
    EXPECT_EQ(dev.Read(kIchgLimit), "");
    EXPECT_FALSE(app->IsBeatRunning("NonDcCurLimitator"));
    EXPECT_GE(dev.CountLogContaining("app set ichg_limit value "), 10);
}

TEST_F(AppTest, NegativeCurrentAndVoltageDemandsGetThrough) {
    AppEstimator* app = App();
    ASSERT_EQ(app->SetPara("ichg_limit", "all 1500"), 0);
    Clear(kIchgLimit);
    EXPECT_EQ(app->SetPara("ichg_limit", "all -1"), 0);  // no demand, yet the smallest
    EXPECT_EQ(dev.Read(kIchgLimit), "quen all -1");
    EXPECT_TRUE(app->IsBeatRunning("NonDcCurLimitator"));
    EXPECT_EQ(app->SetPara("ichg_ratio", "all -2147483648"), 0);
    EXPECT_EQ(ProtectorPool().FindObject("DcCurLimitator")->GetValue(), -2147483648.0);
    EXPECT_EQ(app->SetPara("vterm_dec", "lvc -1"), 0);
    EXPECT_TRUE(app->IsBeatRunning("DcVoltLimitator"));
}

TEST_F(AppTest, SocRequestMovesTheHeartbeatEvenWhenItIsRefused) {
    AppEstimator* app = App();
    Clear(kSocCtrl);
    EXPECT_EQ(app->SetPara("soc_control", "2 80"), -1);  // differs from the default: starts
    EXPECT_TRUE(app->IsBeatRunning("SocLimitator"));
    EXPECT_TRUE(dev.HasLog("start heartbeat of SocLimitator\n"));
    EXPECT_EQ(app->SetPara("soc_control", "1 95 100 1"), -1);  // starts like the default: stops
    EXPECT_FALSE(app->IsBeatRunning("SocLimitator"));
    EXPECT_TRUE(dev.HasLog("stop heartbeat of SocLimitator\n"));
    EXPECT_EQ(dev.CountLog("soc control value 2 80 illegal\n"), 1);
    EXPECT_EQ(dev.Read(kSocCtrl), "");  // neither reached the limitator
}

TEST_F(AppTest, SmartChargingWithAnUnreadableConnectionAnswersTheFlag) {
    AppEstimator* app = App();
    ASSERT_EQ(app->SetPara("soc_control", "2 80 60"), 0);  // a smart strategy sets the flag
    dev.Remove(AppEstimator::kConnectStateNode);
    std::string v;
    ASSERT_EQ(app->GetPara("smart_charging", v), 0);
    EXPECT_EQ(v, "1");
}

TEST_F(AppTest, VoltageStatusAndSocRequestsGoToTheRightLimitator) {
    AppEstimator* app = App();
    Clear(kVtermDec);
    EXPECT_EQ(app->SetPara("vterm_dec", "pd 40"), 0);  // a buck-charger type only
    EXPECT_EQ(dev.Read(kCoulVdec), "40");
    EXPECT_EQ(ProtectorPool().FindObject("NonDcVoltLimitator")->GetValue(), 40.0);
    EXPECT_EQ(dev.Read(kVtermDec).rfind("quen wl 40", 0), 0u);  // the last buck type written
    EXPECT_EQ(ProtectorPool().FindObject("DcVoltLimitator")->GetValue(), -1.0);
    EXPECT_EQ(app->SetPara("vterm_dec", "lvc 30"), 0);
    EXPECT_EQ(ProtectorPool().FindObject("DcVoltLimitator")->GetValue(), 30.0);

    EXPECT_EQ(app->SetPara("batt_status", " 2 "), 0);
    EXPECT_EQ(dev.Read(kStatus), "2");

    EXPECT_EQ(app->SetPara("soc_control", "2 80 60"), 0);
    EXPECT_EQ(dev.Read(kSocCtrl), "quen 1 60 80");
    EXPECT_EQ(dev.Read(kSocStrategy), "quen 2");
    EXPECT_TRUE(dev.HasLog("write soc control of APP with 1 60 80 1 0\n"));
    EXPECT_TRUE(app->IsBeatRunning("SocLimitator"));
    EXPECT_EQ(SOHConfigure::GetSmartCharging(), 1u);
    std::string v;
    ASSERT_EQ(app->GetPara("smart_charging", v), 0);  // flag and-ed with the connection
    EXPECT_EQ(v, "1");
    dev.Write(AppEstimator::kConnectStateNode, "0\n");
    ASSERT_EQ(app->GetPara("smart_charging", v), 0);
    EXPECT_EQ(v, "0");
}

TEST_F(AppTest, ParametersWithoutAswFallBackToTheParameterStore) {
    AppEstimator* app = App();
    std::string v;
    ASSERT_EQ(app->GetPara("smart_charge_enable", v), 0);
    EXPECT_EQ(v, "0");
    EXPECT_EQ(app->SetPara("smart_charge_enable", "1\n"), 0);  // the leading integer counts
    EXPECT_TRUE(SOHConfigure::GetProtectMark());
    EXPECT_EQ(app->SetPara("smart_charge_enable", "yes"), 0);  // no number reads as 0
    EXPECT_FALSE(SOHConfigure::GetProtectMark());
    EXPECT_EQ(app->SetPara("smart_charge_enable", "1 "), 0);
    EXPECT_TRUE(SOHConfigure::GetProtectMark());
    EXPECT_EQ(app->GetPara("smart_charge_feature", v), -1);
    EXPECT_EQ(app->SetPara("smart_charge_support", "1"), 0);
    ASSERT_EQ(app->GetPara("vnupd_config", v), 0);
    EXPECT_EQ(v,
              "type=QUENJSONCONFIG,subtype=generic,compatibleVersion=1,version=1.10.20.100,"
              "needRestart=true,installLocation=vendor,cfgDir=/power/QUENJSONCONFIG");
}

TEST_F(AppTest, CloseSchemeRefusesAppAndUnknownNamesAndPersistsOthers) {
    AppEstimator* app = App();
    EXPECT_EQ(app->SetPara("close_scheme", "APP"), -1);
    EXPECT_EQ(app->SetPara("close_scheme", "NOSUCH"), -1);  // not configured
    EXPECT_EQ(app->SetPara("close_scheme", "CFSD"), 0);     // configured, never created
    EXPECT_FALSE(SOHConfigure::IsSchemeClosed("CFSD"));
    ASSERT_NE(EstimatorPool().GetObjectByName("ISCD"), nullptr);
    EXPECT_EQ(app->SetPara("close_scheme", "ISCD"), 0);
    EXPECT_TRUE(dev.HasLog("receive app close ISCD request\n"));
    EXPECT_TRUE(SOHConfigure::IsSchemeClosed("ISCD"));
    EXPECT_NE(dev.Read("/log/soh/sys_para.dat").find("ISCD"), std::string::npos);
}

TEST_F(AppTest, HeartbeatTimesOutAfter246StepsAndReappliesTheDefaultEveryStep) {
    AppEstimator* app = App();
    app->StartMonitor();
    Clear(kIchgRatio);
    ASSERT_EQ(app->SetPara("ichg_ratio", "all 60"), 0);
    for (int step = 1; step <= 245; ++step) {
        Step();
    }
    EXPECT_TRUE(dev.HasLog("heartbeat of DcCurLimitator is 2450\n"));
    EXPECT_EQ(dev.Read(kIchgRatio), "quen all 60");
    EXPECT_FALSE(dev.HasLog("heartbeat of DcCurLimitator timeout restore default value 100\n"));
    Step();
    EXPECT_EQ(dev.Read(kIchgRatio), "quen all 100");
    EXPECT_EQ(dev.CountLog("heartbeat of DcCurLimitator timeout restore default value 100\n"), 1);
    Step();
    EXPECT_EQ(dev.CountLog("heartbeat of DcCurLimitator timeout restore default value 100\n"), 2);
    EXPECT_TRUE(app->IsBeatRunning("DcCurLimitator"));
    // A renewal starts counting afresh.
    ASSERT_EQ(app->SetPara("ichg_ratio", "all 70"), 0);
    EXPECT_EQ(app->BeatElapsed("DcCurLimitator"), 0u);
}

TEST_F(AppTest, SocTimeoutReleasesTheWindowInsteadOfLimitingTo95) {
    AppEstimator* app = App();
    app->StartMonitor();
    ASSERT_EQ(app->SetPara("soc_control", "2 80 60"), 0);
    ASSERT_EQ(dev.Read(kSocCtrl), "quen 1 60 80");
    for (int step = 1; step <= 246; ++step) {
        Step();
    }
    EXPECT_TRUE(dev.HasLog("heartbeat of SocLimitator timeout restore default value 1 95 100\n"));
    // The default text is in record order (TYPE LOW HIGH): applied as upper bound 100 it asks
    // for no limit, so nothing wins and the kernel's control is left as it was.
    EXPECT_EQ(dev.Read(kSocCtrl), "quen 1 60 80");
    EXPECT_FALSE(dev.HasLog("write soc control of APP with 1 100 95 1 0\n"));
    std::string src, value;
    ASSERT_EQ(SOHConfigure::GetLimitRecord("SocLimitator", src, value), 0);
    EXPECT_EQ(src + "|" + value, "|1 95 100");
}

TEST_F(AppTest, IdleMonitorDoesNotTickWithoutHeartbeats) {
    AppEstimator* app = App();
    app->StartMonitor();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(SohClockTest::Sleepers(), 0);  // waiting for a heartbeat, not for the clock
    ASSERT_EQ(app->SetPara("batt_status", "3"), 0);
    Step();
    EXPECT_TRUE(dev.HasLog("heartbeat of StatusLimitator is 10\n"));
}

TEST_F(AppTest, RecordedLimitsAreRestoredAndOnlyTheSocWindowOutlivesTheHeartbeat) {
    SOHConfigure::RefLimitRecord("NonDcCurLimitator", "APP", "1500");
    SOHConfigure::RefLimitRecord("DcCurLimitator", "BASP", "100");
    SOHConfigure::RefLimitRecord("SocLimitator", "APP", "2 60 80 1 0");
    SOHConfigure::RefLimitRecord("StatusLimitator", "APP", "garbage");
    SOHConfigure::RefLimitRecord("DcVoltLimitator", "BASP", "20");
    Clear(kIchgLimit);
    AppEstimator* app = App();
    app->StartMonitor();
    // Another estimator's limit is held by "APP" only for one heartbeat period, so that it
    // cannot outlive that estimator's own later demands.
    EXPECT_TRUE(app->IsBeatRunning("DcVoltLimitator"));
    EXPECT_EQ(dev.Read(kIchgLimit), "quen all 1500");
    EXPECT_TRUE(app->IsBeatRunning("NonDcCurLimitator"));
    EXPECT_TRUE(dev.HasLog("restore NonDcCurLimitator limit from APP with value 1500\n"));
    EXPECT_FALSE(app->IsBeatRunning("DcCurLimitator"));  // the default needs no heartbeat
    EXPECT_EQ(dev.Read(kSocCtrl), "quen 1 60 80");       // record order back to request order
    EXPECT_FALSE(app->IsBeatRunning("SocLimitator"));
    EXPECT_TRUE(dev.HasLog("app set StatusLimitator value garbage illegal\n"));
    EXPECT_EQ(dev.Read(kStatus), "");

    for (int step = 1; step <= 246; ++step) {
        Step();
    }
    EXPECT_EQ(dev.Read(kIchgLimit), "quen all 2147483647");  // the current limit lapsed
    EXPECT_EQ(dev.Read(kSocCtrl), "quen 1 60 80");           // the window did not
    std::string src, value;
    ASSERT_EQ(SOHConfigure::GetLimitRecord("SocLimitator", src, value), 0);
    EXPECT_EQ(src + " " + value, "APP 2 60 80 1 0");  // so the next start restores it again
}

TEST_F(AppTest, SocRecordsThatDoNotLimitOrDoNotParseAreNotRestored) {
    dev.Write("/properties/ro.bootmode", "charger");  // no monitor thread per start
    for (const char* record : {"1 95 100", "2 60 100 1 0", "2 60 80 1", "2 x 80 1 0"}) {
        SOHConfigure::RefLimitRecord("SocLimitator", "APP", record);
        Clear(kSocCtrl);
        Clear(kSocStrategy);
        App()->StartMonitor();
        EXPECT_EQ(dev.Read(kSocCtrl), "") << record;
        EXPECT_EQ(dev.Read(kSocStrategy), "") << record;
    }
}

}  // namespace
