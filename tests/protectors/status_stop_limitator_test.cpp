// The status limitator's level and limit-support nodes, and the stop limitator's state.
#include "protectors/limit_nodes.h"
#include "protectors/status_limitator.h"
#include "protectors/stop_limitator.h"
#include "tests/protectors/limitator_test_util.h"

namespace {

using StatusLimitatorTest = ProtectorTest;
using StopLimitatorTest = ProtectorTest;

TEST_F(StatusLimitatorTest, LargestLevelIsPublishedAndOnlyPositiveLevelsClaimSupport) {
    NodeTap status(dev, LimitNodes::kIscdStatus);
    NodeTap support(dev, LimitNodes::kIscdLimitSupport);
    StatusLimitator limitator("StatusLimitator");
    FakeEstimator asw("ASW", {&limitator});
    FakeEstimator iscd("ISCD", {&limitator});

    asw.NotifyOne("StatusLimitator", 0);
    EXPECT_EQ(status.Take(), "0");
    EXPECT_EQ(support.Take(), "");
    iscd.NotifyOne("StatusLimitator", 2);
    EXPECT_EQ(status.Take(), "2");
    EXPECT_EQ(support.Take(), std::string("1\0", 2));
    EXPECT_TRUE(dev.HasLog("refresh status of ISCD limit 2.000000\n"));
    EXPECT_EQ(RecordOf("StatusLimitator"), (LimitRecord{"ISCD", "2"}));

    iscd.NotifyOne("StatusLimitator", 0);  // a tie at 0: ASW, the earlier name
    EXPECT_EQ(status.Take(), "0");
    EXPECT_EQ(support.Take(), "");  // never reset by this limitator
    EXPECT_EQ(RecordOf("StatusLimitator"), (LimitRecord{"ASW", "0"}));
}

TEST_F(StatusLimitatorTest, NoDemandTakesPartButALevelBeatsIt) {
    NodeTap status(dev, LimitNodes::kIscdStatus);
    NodeTap support(dev, LimitNodes::kIscdLimitSupport);
    StatusLimitator limitator("StatusLimitator");
    FakeEstimator app("APP", {&limitator});
    FakeEstimator iscd("ISCD", {&limitator});

    app.NotifyOne("StatusLimitator", -1);
    EXPECT_EQ(status.Take(), "");  // -1 is where the limitator starts
    iscd.NotifyOne("StatusLimitator", 3);
    EXPECT_EQ(status.Take(), "3");
    EXPECT_EQ(support.Take(), std::string("1\0", 2));
    iscd.NotifyOne("StatusLimitator", -1);
    EXPECT_EQ(status.Take(), "-1");
    EXPECT_EQ(support.Take(), "");
}

TEST_F(StopLimitatorTest, AZeroDemandAllowsChargingForGood) {
    const std::string allow = "StopLimitator allow charging\n";
    StopLimitator stop("STOP_CHARGE");
    FakeEstimator asw("ASW", {&stop});
    FakeEstimator basp("BASP", {&stop});

    asw.NotifyOne("STOP_CHARGE", -1);
    basp.NotifyOne("STOP_CHARGE", 1);
    EXPECT_EQ(dev.CountLog(allow), 0);
    EXPECT_DOUBLE_EQ(stop.GetValue(), -1.0);
    basp.NotifyOne("STOP_CHARGE", 0);
    EXPECT_EQ(dev.CountLog(allow), 1);
    basp.NotifyOne("STOP_CHARGE", 1);  // no zero left, but the state stays
    asw.NotifyOne("STOP_CHARGE", 5);
    EXPECT_EQ(dev.CountLog(allow), 3);
    EXPECT_DOUBLE_EQ(stop.GetValue(), 0.0);
    EXPECT_EQ(RecordOf("STOP_CHARGE").first, "<none>");
}

}  // namespace
