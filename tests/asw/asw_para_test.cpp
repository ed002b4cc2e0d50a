// The anti-swelling estimator's control parameters: how their values are read, and the
// "smart_charging" answer when the charger's connection state cannot be read.
#include "asw/asw_common.h"
#include "asw/asw_estimator.h"
#include "core/soh_configure.h"
#include "tests/support/fake_device.h"

namespace {

class AswParaTest : public FakeDeviceTest {
protected:
    void SetUp() override {
        dev.CopyTree("examples/device");
        Asw::ResetStub();
    }
    void TearDown() override { Asw::ResetStub(); }
    std::string Get(const std::string& name) {
        std::string value;
        EXPECT_EQ(asw.GetPara(name, value), 0) << name;
        return value;
    }
    AswEstimator asw{"ASW"};
};

}  // namespace

TEST_F(AswParaTest, IntegersAreReadAsAtoiReadsThem) {
    struct Case {
        const char* value;
        int result;
        const char* mark;  // the protect mark read back after it
    } cases[] = {
        {"1\n", 0, "1"}, {"0 ", 0, "0"}, {" 1x", 0, "1"}, {"yes", 0, "0"},
        {"1", 0, "1"},   {"2", -1, "1"}, {"-1", -1, "1"}, {"", 0, "0"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(asw.SetPara("smart_charge_enable", c.value), c.result) << c.value;
        EXPECT_EQ(Get("smart_charge_enable"), c.mark) << c.value;
    }
    for (const Case& c :
         {Case{"1\n", 0, "1"}, Case{"yes", 0, "0"}, Case{"-3 ", 0, "1"}, Case{"0 ", 0, "0"}}) {
        EXPECT_EQ(asw.SetPara("smart_charge_support", c.value), 0) << c.value;
        EXPECT_EQ(Get("smart_charge_feature"), c.mark) << c.value;
    }
}

TEST_F(AswParaTest, TheSwellAddendIsReadAsStodReadsItAndANonNumberIsRefused) {
    struct Case {
        const char* value;
        int result;
        double stored;  // the addend in force after it
    } cases[] = {
        {"0.5 ", 0, 0.5}, {" -0.25", 0, -0.25}, {"2e-3x", 0, 0.002}, {"x", -1, 0.002},
        {"", -1, 0.002},  {"1e400", -1, 0.002}, {"inf", -1, 0.002},  {"nan", -1, 0.002},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(asw.SetPara(Asw::kAswellAddKey, c.value), c.result) << c.value;
        double stored = 0.0;
        ASSERT_TRUE(Asw::GetStubValue(Asw::kAswellAddKey, stored)) << c.value;
        EXPECT_DOUBLE_EQ(stored, c.stored) << c.value;
    }
}

TEST_F(AswParaTest, SmartChargingAnswersTheFlagWhenTheConnectionCannotBeRead) {
    EXPECT_EQ(Get("smart_charging"), "0");  // the feature is off: no read at all
    ASSERT_EQ(asw.SetPara("smart_charge_support", "1"), 0);
    SOHConfigure::SetSmartCharging(1);
    dev.Write(AswNodes::kConnectState, "0\n");
    EXPECT_EQ(Get("smart_charging"), "0");
    dev.Remove(AswNodes::kConnectState);
    EXPECT_EQ(Get("smart_charging"), "1");
    SOHConfigure::SetSmartCharging(0);
    EXPECT_EQ(Get("smart_charging"), "0");
}
