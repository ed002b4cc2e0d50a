// The estimator framework: configuration slices, protector registration, how demands travel,
// and the registries. Strategy tables are followed through the SOC limitator's tests.
#include "core/soh_estimator.h"
#include "core/soh_log.h"
#include "tests/support/fake_device.h"

namespace {

// Records the demands that reach it.
class RecordingProtector : public SOHProtector {
public:
    explicit RecordingProtector(const std::string& name) : SOHProtector(name) {}
    void Update(SOHEstimator* e) override { demands.push_back(e->GetLimitValue(this)); }
    void UpdateStrategy(const std::string&, SohStrategy) override {}
    bool Match(const std::string&) override { return true; }
    std::vector<double> demands;
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
            "BADCOMMON": {"Common": [1], "Level": 4}}})");
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
    EXPECT_TRUE(PlainEstimator("NOSUCH").GetJsonValue()->isNull());
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
    EXPECT_EQ(e.GetLimitValue(soc), -1);
    e.RegisterSafeProtector(cur);
    EXPECT_EQ(e.GetLimitValue(cur), -1);
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
}

}  // namespace
