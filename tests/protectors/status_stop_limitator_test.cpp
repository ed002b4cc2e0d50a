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
    FakeEstimator app("APP", {&limitator});
    FakeEstimator asw("ASW", {&limitator});
    FakeEstimator iscd("ISCD", {&limitator});
    const std::string supported("1\0", 2);
    ExpectSteps("StatusLimitator",
                {{&app, -1, "|"},  // -1 is where the limitator starts
                 {&iscd, 3, "3|" + supported},
                 {&iscd, -1, "-1|"},  // support is never reset by this limitator
                 {&asw, 0, "0|"},
                 {&iscd, 2, "2|" + supported},
                 {&iscd, 0, "0|"}},  // a tie at 0: ASW, the earlier name
                [&] { return status.Take() + "|" + support.Take(); });
    EXPECT_TRUE(dev.HasLog("refresh status of ISCD limit 2.000000\n"));
    EXPECT_EQ(RecordOf("StatusLimitator"), (LimitRecord{"ASW", "0"}));
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
