// The constant-voltage-time estimator: its record ring and resets, the swelling judgement,
// temperature correction, and whole charges driven on the fake device by the manual clock.
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <functional>
#include <mutex>
#include <thread>

#include "core/soh_configure.h"
#include "core/soh_enviroment.h"
#include "core/soh_log.h"
#include "cvt/cvt_estimator.h"
#include "cvt/cvt_nodes.h"
#include "platform/host/soh_clock_test.h"
#include "tests/support/fake_device.h"

namespace {

constexpr int64_t kSec = 1000000000LL;
constexpr int64_t kStartWall = 1700000000LL;

// A battery that measures from 90 % and corrects 10..40 degC between 120 % and 80 %.
Json::Value BatteryConfig(const std::string& extra = "") {
    return ParseJson(R"({"Name": "Default", "ChargeCycleMax": 10, "ChargeSocMin": 60,
        "ChargeBeginSoc": 90, "ValidTempMin": 10, "ValidTempMax": 45, "ValidValueMin": 10,
        "ValidValueMax": 7200, "TempRecoup": {"Temp": [10, 25, 40], "Ratio": [120, 100, 80]},
        "JudgeEnable": 1, "PolicyEnable": 0, "CalculateCount": 3, "ErrorCount": 2,
        "ErrorValue": 1000, "ErrorCycle": 100, "FccRatio": 90)" +
                     extra + "}");
}

class CvtTest : public FakeDeviceTest {
protected:
    void SetUp() override {
        dev.CopyTree("examples/device");
        SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
        SohClockTest::SetManual(kStartWall * kSec);
    }
    CvtInfoSave StoredRecord() {
        CvtInfoSave r{};
        std::string bytes = dev.Read(CvtNodes::kCvtFile);
        EXPECT_EQ(bytes.size(), sizeof(r));
        memcpy(&r, bytes.data(), std::min(bytes.size(), sizeof(r)));
        return r;
    }
    void WriteRecord(const CvtInfoSave& r) {
        dev.Write(CvtNodes::kCvtFile, std::string(reinterpret_cast<const char*>(&r), sizeof(r)));
    }
    // Battery state seen by the next sample.
    void Sample(int mv, int soc, int done = 0, int tempTenths = 250) {
        dev.Write(CvtNodes::kBatteryVoltageNow, std::to_string(mv * 1000));
        dev.Write(CvtNodes::kBatteryCapacity, std::to_string(soc));
        dev.Write(CvtNodes::kChargeDone, std::to_string(done));
        dev.Write(CvtNodes::kBatteryTemp, std::to_string(tempTenths));
    }
    // A charge that passes the access conditions: aged battery, 50 %, standard charger.
    void ChargeFrom(int mv) {
        dev.Write(CvtNodes::kBatteryCycleCount, "300");
        dev.Write(CvtNodes::kChargerType, "3");
        dev.Write(CvtNodes::kChargerStatus, "1");
        Sample(mv, 50);
    }
    bool WaitLog(const std::string& line) {
        for (int i = 0; i < 5000 && !dev.HasLog(line); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return dev.HasLog(line);
    }
    void TearDown() override {
        if (runner_.joinable()) {
            runner_.join();
        }
        if (watch_ >= 0) {
            close(watch_);
        }
    }
    // Runs `body` (which samples the battery on the clock) on a thread of its own.
    void Run(std::function<void()> body) {
        watch_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        ASSERT_GE(watch_, 0);
        ASSERT_GE(inotify_add_watch(watch_, dev.HostPath("/sys/class/power_supply/Battery").c_str(),
                                    IN_ACCESS),
                  0);
        runner_ = std::thread([this, body] {
            body();
            done_ = true;
        });
    }
    // Lets the running body take its next 5-second step: waits until it sleeps, advances the
    // clock, sees it read the voltage (or end) and waits until it sleeps again.
    void Step() {
        WaitAsleepOrDone();
        char buf[4096];
        while (read(watch_, buf, sizeof(buf)) > 0) {
        }
        SohClockTest::Advance(CvtBattery::kSampleSeconds * kSec);
        bool sampled = false;
        for (int i = 0; i < 10000 && !sampled && !done_; ++i) {
            struct pollfd pfd = {watch_, POLLIN, 0};
            if (poll(&pfd, 1, 1) <= 0) {
                continue;
            }
            ssize_t n = read(watch_, buf, sizeof(buf));
            for (ssize_t off = 0; off < n;) {
                auto* ev = reinterpret_cast<inotify_event*>(buf + off);
                sampled = sampled || (ev->len > 0 && std::string(ev->name) == "voltage_now");
                off += static_cast<ssize_t>(sizeof(inotify_event) + ev->len);
            }
        }
        WaitAsleepOrDone();
    }
    // Joins the body that has ended and stops watching its reads, for the next Run.
    void Finish() {
        runner_.join();
        close(watch_);
        watch_ = -1;
    }
    void WaitAsleepOrDone() {
        for (int i = 0; i < 10000 && SohClockTest::Sleepers() == 0 && !done_; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    std::thread runner_;
    std::atomic<bool> done_{false};
    int watch_ = -1;
};

TEST_F(CvtTest, RingKeepsTheLast200AndTheCountGoesOn) {
    CvtDataManage data;
    data.CvtInfoInit(BatteryConfig());
    EXPECT_TRUE(dev.HasLog("memset_s cvtKeyData reset succ\n"));
    dev.Write(CvtNodes::kBatteryBrand, "ATL\n");
    for (int i = 0; i < 201; ++i) {
        ASSERT_EQ(data.CvtSaveInfoToFile(1000 + i, 2000 + i, 300, -5), 0);
    }
    CvtInfoSave r = StoredRecord();
    EXPECT_EQ(r.count, 201);
    EXPECT_EQ(r.magic, CvtInfoSave::kMagic);
    EXPECT_STREQ(r.brand, "ATL");
    EXPECT_EQ(r.calCvt[0], 1200);  // the 201st result
    EXPECT_EQ(r.orgCvt[0], 2200);
    EXPECT_EQ(r.calCvt[1], 1001);
    EXPECT_EQ(r.batTemp[0], -5);
    EXPECT_EQ(r.time[0], kStartWall);

    CvtDataManage reloaded;  // the stored ring is taken over as it is
    reloaded.CvtInfoInit(BatteryConfig());
    EXPECT_EQ(reloaded.Record().count, 201);
    EXPECT_EQ(reloaded.Record().calCvt[0], 1200);
}

TEST_F(CvtTest, DamagedOrForeignRecordsAreReset) {
    CvtInfoSave stored{};
    stored.magic = CvtInfoSave::kMagic;
    stored.count = 7;
    stored.calCvt[0] = 42;
    struct Case {
        const char* what;
        std::string bytes;
        bool batteryChanged;
        const char* log;
    };
    std::string good(reinterpret_cast<const char*>(&stored), sizeof(stored));
    std::string badMagic = good;
    badMagic[4] = 0x12;
    for (const Case& c : {
             Case{"wrong magic", badMagic, false,
                  "cvt original data corrupted, magic num=1012561682\n"},
             Case{"short file", good.substr(0, 100), false,
                  "read /splash2/battery/cvtnew.data failed\n"},
             Case{"battery changed", good, true, "battery have changed, need reset cvtnew.data\n"},
         }) {
        dev.Write(CvtNodes::kCvtFile, c.bytes);
        dev.Write(kBatteryRemovedNode, c.batteryChanged ? "1" : "0");
        CvtDataManage data;
        data.CvtInfoInit(BatteryConfig());
        EXPECT_TRUE(dev.HasLog(c.log)) << c.what;
        EXPECT_EQ(data.Record().count, 0) << c.what;
        EXPECT_EQ(data.Record().magic, 0u) << c.what;
        EXPECT_TRUE(dev.Exists(CvtNodes::kCvtFile)) << c.what;  // ready for the next save
    }
    dev.Write(CvtNodes::kCvtFile, good);
    dev.Write(kBatteryRemovedNode, "0");
    dev.Write(CvtNodes::kCvtOldFile, "old");
    CvtDataManage data;
    data.CvtInfoInit(BatteryConfig());
    EXPECT_EQ(data.Record().count, 7);
    EXPECT_FALSE(dev.Exists(CvtNodes::kCvtOldFile));

    // A file longer than the record (a longer layout, a torn append) is read from its start.
    dev.Write(CvtNodes::kCvtFile, good + std::string(64, '\x5a'));
    CvtDataManage longer;
    longer.CvtInfoInit(BatteryConfig());
    EXPECT_EQ(longer.Record().count, 7);
    EXPECT_EQ(longer.Record().calCvt[0], 42);
}

TEST_F(CvtTest, UncreatableDirectoryLeavesNothingToWrite) {
    dev.Remove("/splash2");
    dev.Write("/splash2", "not a directory");
    CvtDataManage data;
    data.CvtInfoInit(Json::Value());  // and no keys at all
    EXPECT_TRUE(dev.HasLog("JudgeEnable not config\n"));
    EXPECT_TRUE(dev.HasLog("create dir /splash2/battery failed\n"));
    EXPECT_TRUE(dev.HasLog("open /splash2/battery/cvtnew.data failed\n"));
    EXPECT_EQ(data.CvtSaveInfoToFile(1, 1, 1, 1), -1);
    EXPECT_TRUE(dev.HasLog("file /splash2/battery/cvtnew.data is not exist\n"));
    data.CvtSwellJudge(1000, 1, 100);
    EXPECT_TRUE(dev.HasLog("cvt swell judge is not enabled\n"));
}

TEST_F(CvtTest, JudgementCountsLowResultsAmongTheLatestOnly) {
    CvtDataManage data;
    data.CvtInfoInit(BatteryConfig());  // 2 of the last 3 below 1000 s, from 100 cycles, 90 %
    data.CvtSaveInfoToFile(900, 900, 300, 25);
    data.CvtSaveInfoToFile(900, 900, 300, 25);
    data.CvtSwellJudge(300, 80, 100);
    EXPECT_TRUE(dev.HasLog("cvt valid data not enough, cnt=2\n"));
    for (int v : {1500, 1500, 900}) {  // the two old lows drop out of the window
        data.CvtSaveInfoToFile(v, v, 300, 25);
    }
    data.CvtSwellJudge(300, 80, 100);
    EXPECT_EQ(data.Record().swellFlag, 0);
    data.CvtSwellJudge(99, 80, 100);
    data.CvtSwellJudge(300, 91, 100);
    EXPECT_EQ(dev.CountLogContaining("cvt battery aging is not enough"), 2);
    data.CvtSaveInfoToFile(999, 999, 300, 25);
    data.CvtSwellJudge(300, 90, 100);
    EXPECT_EQ(data.Record().swellFlag, 1);
    EXPECT_TRUE(dev.HasLog("battery is swelling, cvtErrorCnt=2\n"));
    data.CvtSaveInfoToFile(1500, 1500, 300, 25);
    EXPECT_EQ(StoredRecord().swellFlag, 1);  // kept once found

    CvtDataManage none;
    none.CvtInfoInit(BatteryConfig(R"(, "CalculateCount": 0, "ErrorCount": 0)"));
    none.CvtSwellJudge(300, 80, 100);
    EXPECT_EQ(none.Record().swellFlag, 1);  // loaded flag stays
    EXPECT_EQ(dev.CountLogContaining("battery is swelling"), 1);
}

TEST_F(CvtTest, TemperatureCorrectionFollowsTheSegments) {
    CvtBattery battery;
    ASSERT_TRUE(battery.Init(BatteryConfig()));
    EXPECT_TRUE(
        dev.HasLog("cvt init: Cycle:10, Soc:60, BeginSoc:90, Temp:[10, 45], Value:[10, 7200]\n"));
    EXPECT_TRUE(dev.HasLog("recoupRatio[2] = 80\n"));
    struct Case {
        int temp;
        int expected;
    };
    for (const Case& c : {Case{-20, 1200}, Case{10, 1200}, Case{17, 1107}, Case{25, 1000},
                          Case{39, 813}, Case{40, 800}, Case{60, 800}}) {
        EXPECT_EQ(battery.CvtTempAdjust(1000, c.temp), c.expected) << c.temp;
    }
}

TEST_F(CvtTest, IncompleteBatteryConfigurationIsNotUsed) {
    Json::Value noRecoup = BatteryConfig();
    noRecoup.removeMember("TempRecoup");
    Json::Value noBegin = BatteryConfig();
    noBegin.removeMember("ChargeBeginSoc");
    Json::Value otherModel = BatteryConfig(R"(, "Model": "NOSUCHCELL")");
    for (const Json::Value& cfg : {noRecoup, noBegin, otherModel}) {
        EXPECT_FALSE(CvtBattery().Init(cfg));
    }
    EXPECT_TRUE(dev.HasLog("Ratio not config\n"));
    EXPECT_TRUE(dev.HasLog("Temp not config\n"));
    EXPECT_TRUE(dev.HasLog("ChargeBeginSoc not config\n"));
    EXPECT_TRUE(dev.HasLog("model and country not match\n"));
    EXPECT_FALSE(dev.Exists(CvtNodes::kCvtFile));  // no record is touched for them
}

TEST_F(CvtTest, ChargerTypeAndAccessConditions) {
    CvtBattery battery;
    ASSERT_TRUE(battery.Init(BatteryConfig()));
    dev.Write(CvtNodes::kChargerType, "2");
    EXPECT_EQ(battery.GetChargerType(), 2u);
    dev.Write(CvtNodes::kDirectChargerScDetect, "0");
    EXPECT_EQ(battery.GetChargerType(), 12u);
    dev.Write(CvtNodes::kDirectChargerDetect, "0");
    EXPECT_EQ(battery.GetChargerType(), 10u);
    dev.Remove(CvtNodes::kDirectChargerDetect);
    dev.Remove(CvtNodes::kDirectChargerScDetect);
    dev.Remove(CvtNodes::kChargerType);
    EXPECT_EQ(battery.GetChargerType(), 5u);

    ChargeFrom(4000);
    dev.Write(CvtNodes::kBatteryCycleCount, "9");
    EXPECT_FALSE(battery.AccessConditionJudgment());
    EXPECT_TRUE(dev.HasLog("new battery,do nothing, cycles=9\n"));
    dev.Write(CvtNodes::kBatteryCycleCount, "10");
    dev.Write(CvtNodes::kBatteryCapacity, "61");
    EXPECT_FALSE(battery.AccessConditionJudgment());
    EXPECT_TRUE(dev.HasLog("battery soc is high,do nothing, soc=61\n"));
    dev.Write(CvtNodes::kBatteryCapacity, "60");
    dev.Write(CvtNodes::kChargerType, "5");  // not a charger that is measured
    std::atomic<bool> passed{true};
    Run([&] { passed = battery.AccessConditionJudgment(); });
    Step();
    EXPECT_TRUE(done_);
    EXPECT_FALSE(passed);
    EXPECT_TRUE(dev.HasLog("charger type is not right,do nothing, chargerType=5\n"));
}

TEST_F(CvtTest, FullChargeIsTimedCorrectedStoredAndReported) {
    CvtBattery battery;
    ASSERT_TRUE(battery.Init(BatteryConfig()));
    dev.Write(CvtNodes::kBatteryBrand, "SUN\n");
    ChargeFrom(4249);
    Run([&] { battery.ConstantVoltageTime(); });
    Step();  // access conditions, then the first sample
    EXPECT_TRUE(dev.HasLog("access condition ok\n"));
    Sample(4249, 95);
    Step();
    EXPECT_EQ(dev.CountLogContaining("start CVT calculate"), 0);
    Sample(4250, 95, 0, 150);
    Step();
    EXPECT_TRUE(dev.HasLog("start CVT calculate, soc=95 vol=4250 cur=-420\n"));
    Sample(4330, 99, 1, 150);  // charge done, but not yet full
    Step();
    Step();
    Sample(4320, 100, 1, 150);
    Step();
    EXPECT_TRUE(done_);
    EXPECT_TRUE(dev.HasLog("end CVT calculate, soc=100 vol=4320 cur=-420\n"));
    const int64_t timed = 3 * CvtBattery::kSampleSeconds;

    EXPECT_EQ(dev.CountLogContaining("start CVT calculate"), 1);
    CvtInfoSave r = StoredRecord();
    ASSERT_EQ(r.count, 1);
    EXPECT_EQ(r.orgCvt[0], timed);
    EXPECT_EQ(r.calCvt[0], std::lround(timed * (120.0 - 20.0 * 5 / 15) / 100));  // 15 degC
    EXPECT_EQ(r.batTemp[0], 15);
    EXPECT_EQ(r.batCyc[0], 300);
    EXPECT_STREQ(r.brand, "SUN");
    std::vector<Json::Value> events = dev.BigData();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0]["id"].asUInt(), CvtDataManage::kReportEventId);
    std::vector<std::string> keys;
    for (const Json::Value& f : events[0]["fields"]) {
        keys.push_back(f["key"].asString());
    }
    EXPECT_EQ(keys, (std::vector<std::string>{"DETTIME", "BATVENDOR", "ORGCVT", "CALCVT", "BATTEMP",
                                              "BATCYC", "FASTFCCEST"}));
    EXPECT_EQ(events[0]["fields"][1]["value"].asString(), "SUN");
    EXPECT_EQ(events[0]["fields"][2]["value"].asInt64(), timed);
}

TEST_F(CvtTest, ChargerRemovedBeforeTheEndRecordsNothing) {
    CvtBattery battery;
    ASSERT_TRUE(battery.Init(BatteryConfig()));
    ChargeFrom(4300);
    dev.Write(CvtNodes::kBatteryCapacity, "50");
    Run([&] { battery.ConstantVoltageTime(); });
    Step();
    Sample(4300, 96);
    Step();
    EXPECT_TRUE(dev.HasLog("start CVT calculate, soc=96 vol=4300 cur=-420\n"));
    dev.Write(CvtNodes::kChargerStatus, "0");
    Sample(4320, 100, 1);
    Step();
    EXPECT_TRUE(done_);
    EXPECT_TRUE(dev.HasLog("charger remove, do nothing\n"));
    EXPECT_EQ(dev.Read(CvtNodes::kCvtFile), "");
    EXPECT_TRUE(dev.BigData().empty());
}

// The first battery that applies is used; a malformed or unmatched list is refused.
TEST_F(CvtTest, EstimatorConfigurationPicksTheFirstBatteryThatApplies) {
    dev.Write("/odm/etc/power/quen.json", R"({"Estimators": {"CVT": {"Battery": [
        {"Name": "Other", "Model": "NOSUCHCELL"},
        {"Name": "Sample", "ChargeCycleMax": 7, "ChargeSocMin": 60, "ChargeBeginSoc": 90,
         "ValidTempMin": 0, "ValidTempMax": 45, "ValidValueMin": 1, "ValidValueMax": 9,
         "TempRecoup": {"Temp": [25], "Ratio": [100]}}]},
        "NOBATTERY": {"Battery": {"Name": "x"}},
        "NONAME": {"Battery": [{"Model": "all"}]},
        "NOMATCH": {"Battery": [{"Name": "x", "Model": "NOSUCHCELL"}]}}})");
    CvtEstimator cvt("CVT");
    EXPECT_EQ(cvt.InitCvt(), 0);
    ASSERT_NE(cvt.Battery(), nullptr);
    EXPECT_EQ(dev.CountLog("cvt battery init failed\n"), 1);
    EXPECT_TRUE(dev.HasLog("cvt init: Cycle:7, Soc:60, BeginSoc:90, Temp:[0, 45], Value:[1, 9]\n"));
    EXPECT_EQ(cvt.Battery()->CvtTempAdjust(500, 3), 500);

    EXPECT_EQ(CvtEstimator("NOBATTERY").InitCvt(), -1);
    EXPECT_TRUE(dev.HasLog("root configure not have Battery\n"));
    EXPECT_EQ(CvtEstimator("NONAME").InitCvt(), -1);
    EXPECT_TRUE(dev.HasLog("battery not config policy name\n"));
    EXPECT_EQ(CvtEstimator("NOMATCH").InitCvt(), 1);
}

TEST_F(CvtTest, MonitorStopsWhenTheEventNodeIsMissing) {
    dev.Remove(CvtNodes::kChargeStartEvent);
    // Made by the pool as the daemon does (and kept: its thread outlives this test's scope).
    EstimatorPool().Register("CVT", [](const char* n) { return new CvtEstimator(n); });
    auto* cvt = static_cast<CvtEstimator*>(EstimatorPool().GetObjectByName("CVT"));
    cvt->StartMonitor();  // the sample configuration
    {
        // As the supervisor waits: under the state lock, so the thread is done with it after.
        std::unique_lock<std::mutex> l(EstimatorStateLock);
        EXPECT_TRUE(EstimatorStateChanged.wait_for(l, std::chrono::seconds(10),
                                                   [&] { return cvt->GetRunState() == "stop"; }));
    }
    EXPECT_TRUE(dev.HasLog("battery select error\n"));
    EXPECT_EQ(cvt->GetRunState(), "stop");
    EXPECT_TRUE(dev.HasLog("open POLL_CC_EVENT_SYSFS failed\n"));
    EXPECT_NE(cvt->Battery(), nullptr);
}

class CvtSamplingTest : public CvtTest {};

// The phase is timed on the monotonic clock: a wall clock set back an hour mid-charge does
// not change the measured duration.
TEST_F(CvtSamplingTest, DurationIgnoresWallClockSteps) {
    CvtBattery battery;
    ASSERT_TRUE(battery.Init(BatteryConfig()));
    ChargeFrom(4300);
    Run([&] { battery.ConstantVoltageTime(); });
    Step();
    Sample(4300, 96, 0, 150);
    Step();
    ASSERT_TRUE(dev.HasLog("start CVT calculate, soc=96 vol=4300 cur=-420\n"));
    SohClockTest::SetWall((kStartWall - 3600) * kSec);
    Step();
    Sample(4320, 100, 1, 150);
    Step();
    ASSERT_TRUE(done_);
    EXPECT_EQ(StoredRecord().orgCvt[0], 2 * static_cast<int>(CvtBattery::kSampleSeconds));
}

// Inputs that stay unreadable end the measurement after a bounded number of samples, whether
// the charger status or the battery's own nodes fail; a readable sample resets the count.
TEST_F(CvtSamplingTest, InputsThatStayUnreadableEndTheMeasurement) {
    for (const char* node : {CvtNodes::kChargerStatus, CvtNodes::kBatteryCapacity}) {
        SCOPED_TRACE(node);
        CvtBattery battery;
        ASSERT_TRUE(battery.Init(BatteryConfig()));
        ChargeFrom(4300);
        done_ = false;
        Run([&] { battery.ConstantVoltageTime(); });
        Step();  // access conditions, first sample
        dev.Remove(node);
        for (unsigned i = 1; i < CvtBattery::kMaxUnreadableSamples / 2; ++i) {
            Step();
        }
        ChargeFrom(4300);  // one readable sample
        Step();
        dev.Remove(node);
        for (unsigned i = 1; i < CvtBattery::kMaxUnreadableSamples && !done_; ++i) {
            Step();
        }
        EXPECT_FALSE(done_);  // the count started again at the readable sample
        Step();
        EXPECT_TRUE(done_);
        Finish();
    }
    EXPECT_EQ(dev.CountLog("cvt: charger or battery unreadable for 60 samples, measurement "
                           "abandoned\n"),
              2);
    EXPECT_EQ(dev.Read(CvtNodes::kCvtFile), "");
}

// A charge that stops short of the end (a SOC cap before the phase starts; a termination
// voltage lowered below the end voltage after it) is abandoned after a bounded number of samples
// without charging; a sample that charges again resets the count.
TEST_F(CvtSamplingTest, ChargeThatStopsShortOfTheEndIsAbandoned) {
    struct Case {
        int mv, soc, done;
        const char* status;
    };
    for (const Case& c : {Case{4200, 90, 0, "Not charging\n"}, Case{4300, 100, 1, "Full\n"}}) {
        SCOPED_TRACE(c.status);
        CvtBattery battery;
        ASSERT_TRUE(battery.Init(BatteryConfig()));
        ChargeFrom(4300);
        done_ = false;
        Run([&] { battery.ConstantVoltageTime(); });
        Step();  // access conditions, first sample: the phase starts at 4300 mV
        Sample(c.mv, c.soc, c.done);
        dev.Write(CvtNodes::kBatteryStatus, c.status);
        for (unsigned i = 1; i < CvtBattery::kMaxIdleSamples / 2; ++i) {
            Step();
        }
        dev.Write(CvtNodes::kBatteryStatus, "Charging\n");
        Step();
        dev.Write(CvtNodes::kBatteryStatus, c.status);
        for (unsigned i = 1; i < CvtBattery::kMaxIdleSamples && !done_; ++i) {
            Step();
        }
        EXPECT_FALSE(done_);
        Step();
        EXPECT_TRUE(done_);
        Finish();
    }
    EXPECT_EQ(dev.CountLogContaining("before the end; measurement abandoned"), 2);
    EXPECT_TRUE(
        dev.HasLog("cvt: charging stopped at soc 100, 4300 mV, before the end; "
                   "measurement abandoned\n"));
    EXPECT_EQ(dev.Read(CvtNodes::kCvtFile), "");
}

}  // namespace
