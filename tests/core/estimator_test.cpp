// The estimator framework: configuration slices, protector registration, how demands and
// strategy tables travel, and the registries.
#include "core/soh_estimator.h"
#include "core/soh_log.h"
#include "tests/support/fake_device.h"

namespace {

// Records what reaches it.
class RecordingProtector : public SOHProtector {
public:
    explicit RecordingProtector(const std::string& name) : SOHProtector(name) {}
    void Update(SOHEstimator* e) override { demands.push_back(e->GetLimitValue(this)); }
    void UpdateStrategy(const std::string& from, SohStrategy s) override {
        source = from;
        strategy = s;
    }
    bool Match(const std::string&) override { return true; }
    std::vector<double> demands;
    std::string source;
    SohStrategy strategy;
};

class PlainEstimator : public SOHEstimator {
public:
    using SOHEstimator::SOHEstimator;
    void StartMonitor() override {}
};

class EstimatorTest : public FakeDeviceTest {
protected:
    void SetUp() override {
        SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
        for (const char* name : {"SocLimitator", "DcCurLimitator"}) {
            ProtectorPool().Register(name, [](const char* n) { return new RecordingProtector(n); });
        }
        dev.Write("/odm/etc/power/quen.json", R"({"Estimators": {
            "WITHCOMMON": {"Common": {"Level": 3}, "Protectors": ["DcCurLimitator", "Unknown"]},
            "BADCOMMON": {"Common": [1], "Level": 4},
            "SOC": {"Protectors": ["SocLimitator"]}}})");
    }
    RecordingProtector* Protector(const std::string& name) {
        return static_cast<RecordingProtector*>(ProtectorPool().GetObjectByName(name));
    }
};

TEST_F(EstimatorTest, SliceIsCommonWhenItIsAnObjectElseTheWholeEntry) {
    PlainEstimator withCommon("WITHCOMMON");
    EXPECT_EQ((*withCommon.GetJsonValue())["Level"].asInt(), 3);
    EXPECT_TRUE(dev.HasLog("use common configure for WITHCOMMON\n"));
    EXPECT_TRUE(dev.HasLog("Register protector(DcCurLimitator) for WITHCOMMON\n"));
    EXPECT_TRUE(dev.HasLog("Can't find protector(Unknown)\n"));

    PlainEstimator badCommon("BADCOMMON");
    EXPECT_EQ((*badCommon.GetJsonValue())["Level"].asInt(), 4);
    EXPECT_TRUE(dev.HasLog("use top configure for BADCOMMON\n"));

    PlainEstimator absent("NOSUCH");
    EXPECT_TRUE(absent.GetJsonValue()->isNull());
    EXPECT_EQ(absent.GetRunState(), "stop");
}

TEST_F(EstimatorTest, DemandsReachOnlyRegisteredProtectorsAndReRegistrationResets) {
    PlainEstimator e("WITHCOMMON");
    RecordingProtector* cur = Protector("DcCurLimitator");
    RecordingProtector* soc = Protector("SocLimitator");
    e.NotifyOne("DcCurLimitator", 50);
    e.NotifyOne("SocLimitator", 10);  // not registered for this estimator
    e.NotifyOne("Unknown", 10);
    EXPECT_EQ(cur->demands, std::vector<double>{50});
    EXPECT_TRUE(soc->demands.empty());
    EXPECT_EQ(e.GetLimitValue(cur), 50);
    EXPECT_EQ(e.GetLimitValue(soc), -1);
    e.RegisterSafeProtector(cur);
    EXPECT_EQ(e.GetLimitValue(cur), -1);
}

TEST_F(EstimatorTest, SocStrategyKeysFollowTheRecord) {
    PlainEstimator e("SOC");
    RecordingProtector* soc = Protector("SocLimitator");
    SocStrategy s;
    s.Type = 2;
    s.HighSoc = 80;
    s.LowSoc = 60;
    s.ShutDownSign = 1;
    e.NotifySocStrategy(s);
    EXPECT_EQ(soc->source, "SOC");
    EXPECT_EQ(soc->strategy, (SohStrategy{{"Type", 2},
                                          {"HighSoc", 80},
                                          {"LowSoc", 60},
                                          {"SmartChgSign", 0},
                                          {"ShutDownSign", 1},
                                          {"Iin", 0},
                                          {"Enable", 1}}));
    e.NotifySocStrategy(3, 100, 90, true);
    EXPECT_EQ(soc->strategy, (SohStrategy{{"Type", 3},
                                          {"HighSoc", 100},
                                          {"LowSoc", 90},
                                          {"SmartChgSign", 1},
                                          {"ShutDownSign", 0},
                                          {"Iin", 0},
                                          {"Force", 1},
                                          {"Enable", 0}}));
}

TEST(ObjectPool, NullFromAFactoryIsNotKeptAndUnknownNamesGiveNull) {
    SOHObjectPool<int> pool;
    int calls = 0;
    int value = 7;
    pool.Register("X", [&](const char* name) -> int* {
        EXPECT_STREQ(name, "X");
        return ++calls == 1 ? nullptr : &value;
    });
    EXPECT_EQ(pool.GetObjectByName("X"), nullptr);
    EXPECT_EQ(pool.GetObjectByName("X"), &value);
    EXPECT_EQ(pool.GetObjectByName("X"), &value);
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(pool.GetObjectByName("Y"), nullptr);
    EXPECT_EQ(pool.Objects().size(), 1u);
}

}  // namespace
