// The SOC limitator: validation, selection of the lowest enabled upper bound, the change
// test, what reaches the control and strategy nodes and the record, and the release flag.
#include "protectors/soc_limitator.h"
#include "protectors/limit_nodes.h"
#include "tests/protectors/limitator_test_util.h"

namespace {

class SocLimitatorTest : public ProtectorTest {
protected:
    // What the control and strategy nodes received since the last call, "control | strategy".
    std::string Written() { return control_.Take() + " | " + strategy_.Take(); }

    static SohStrategy Table(double enable, double low, double high, double type) {
        return {{"Enable", enable}, {"LowSoc", low}, {"HighSoc", high}, {"Type", type}};
    }

    SocLimitator soc_{"SocLimitator"};

private:
    NodeTap control_{dev, LimitNodes::kSocControl};
    NodeTap strategy_{dev, LimitNodes::kSocStrategy};
};

TEST_F(SocLimitatorTest, StrategyIsWrittenAndRecordedAndSmallChangesAreNot) {
    FakeEstimator basp("BASP", {&soc_});
    basp.NotifyStrategy("SocLimitator", Table(1, 55, 75, 2));
    EXPECT_EQ(Written(), "quen 1 55 75 | quen 2");
    EXPECT_EQ(RecordOf("SocLimitator"), (LimitRecord{"BASP", "2 55 75 0 0"}));
    EXPECT_TRUE(dev.HasLog("write soc control of BASP with 1 55 75 0 0\n"));
    EXPECT_TRUE(dev.HasLog("write soc strategy 2 success\n"));

    basp.NotifyStrategy("SocLimitator", Table(1.005, 55.005, 74.995, 2.005));
    EXPECT_EQ(Written(), " | ");
    basp.NotifyStrategy("SocLimitator", Table(1, 55.02, 75, 2));
    EXPECT_EQ(Written(), "quen 1 55 75 | quen 2");

    SocStrategy s;  // the framework's table
    s.Type = 3;
    s.HighSoc = 80;
    s.LowSoc = 60;
    s.SmartChgSign = 1;
    s.ShutDownSign = 1;
    basp.NotifySocStrategy(s);
    EXPECT_EQ(Written(), "quen 1 60 80 | quen 3");
    EXPECT_EQ(RecordOf("SocLimitator"), (LimitRecord{"BASP", "3 60 80 1 1"}));
    EXPECT_EQ(SOHConfigure::GetSmartCharging(), 1u);
}

TEST_F(SocLimitatorTest, LowestEnabledUpperBoundWinsAndTiesKeepTheEarlierName) {
    FakeEstimator app("AppEstimator", {&soc_});
    FakeEstimator basp("BaspEstimator", {&soc_});
    FakeEstimator cvt("CvtEstimator", {&soc_});
    FakeEstimator eis("EisEstimator", {&soc_});

    basp.NotifyStrategy("SocLimitator", Table(1, 60, 80, 5));
    app.NotifyStrategy("SocLimitator", Table(1, 50, 80, 4));
    EXPECT_EQ(RecordOf("SocLimitator"), (LimitRecord{"AppEstimator", "4 50 80 0 0"}));
    EXPECT_EQ(Written(), "quen 1 60 80quen 1 50 80 | quen 5quen 4");
    cvt.NotifyStrategy("SocLimitator", Table(1, 40, 70, 6));
    EXPECT_EQ(Written(), "quen 1 40 70 | quen 6");
    eis.NotifyStrategy("SocLimitator", Table(0, 10, 20, 7));   // not enabled
    EXPECT_EQ(Written(), "quen 1 40 70 | quen 6");             // a change, same winner
    eis.NotifyStrategy("SocLimitator", Table(1, 90, 100, 7));  // 100 never wins
    SohStrategy noEnable = {{"LowSoc", 10}, {"HighSoc", 20}, {"Type", 8}};
    eis.NotifyStrategy("SocLimitator", noEnable);  // incomplete: ignored entirely
    Written();
    eis.NotifyStrategy("SocLimitator", Table(1, 90, 100, 7));  // so this is still no change
    EXPECT_EQ(Written(), " | ");
    EXPECT_EQ(RecordOf("SocLimitator").first, "CvtEstimator");
}

TEST_F(SocLimitatorTest, ControlIsSwitchedOffOnlyAfterAForcedStrategy) {
    FakeEstimator app("APP", {&soc_});
    FakeEstimator basp("BASP", {&soc_});

    app.NotifyStrategy("SocLimitator", Table(0, 55, 75, 2));
    EXPECT_EQ(Written(), " | ");
    basp.NotifyStrategy("SocLimitator", Table(1, 50, 70, 1));
    basp.NotifyStrategy("SocLimitator", Table(0, 50, 70, 1));  // nothing wins, not armed
    EXPECT_EQ(Written(), "quen 1 50 70 | quen 1");
    EXPECT_EQ(RecordOf("SocLimitator"), (LimitRecord{"", "1 95 100"}));

    basp.NotifySocStrategy(1, 70, 50, true);  // the short form: a smart, forcing strategy
    EXPECT_EQ(Written(), "quen 1 50 70 | quen 1");
    EXPECT_EQ(RecordOf("SocLimitator"), (LimitRecord{"BASP", "1 50 70 1 0"}));
    basp.NotifySocStrategy(1, 100, 50, false);  // the release stays armed
    EXPECT_EQ(Written(), "quen 0 95 100 | ");
    EXPECT_TRUE(dev.HasLog("write soc control to disable soc limit\n"));
    EXPECT_EQ(SOHConfigure::GetSmartCharging(), 0u);
    basp.NotifySocStrategy(1, 100, 50, false);
    EXPECT_EQ(Written(), " | ");
    app.NotifyStrategy("SocLimitator", Table(0, 60, 75, 2));  // a change, still no winner
    EXPECT_EQ(Written(), "quen 0 95 100 | ");
}

}  // namespace
