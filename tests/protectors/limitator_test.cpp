// The current and voltage limitators: how demands combine, when the kernel is written, what
// the lines and records look like, and how failing charger types are dropped.
#include <signal.h>
#include <sys/resource.h>

#include <cmath>
#include <functional>
#include <limits>

#include "protectors/dc_cur_limitator.h"
#include "protectors/dc_volt_limitator.h"
#include "protectors/limit_nodes.h"
#include "protectors/non_dc_cur_limitator.h"
#include "protectors/non_dc_vol_limitator.h"
#include "tests/protectors/limitator_test_util.h"

namespace {

using LimitatorTest = ProtectorTest;

TEST(LimitatorTruncTest, OutOfRangeValuesSaturateInsteadOfOverflowing) {
    EXPECT_EQ(SOHLimitator::TruncToInt32(-1.9), -1);
    EXPECT_EQ(SOHLimitator::TruncToInt32(1e12), std::numeric_limits<int32_t>::max());
    EXPECT_EQ(SOHLimitator::TruncToInt32(-1e12), std::numeric_limits<int32_t>::min());
    EXPECT_EQ(SOHLimitator::TruncToInt32(std::nan("")), 0);
}

TEST_F(LimitatorTest, SmallestCurrentIsWrittenWhenItsIntegerChangesAndNoDemandCanWin) {
    NodeTap ratio(dev, LimitNodes::kIchgRatio);
    NodeTap limit(dev, LimitNodes::kIchgLimit);
    DcCurLimitator dc("DcCurLimitator");
    NonDcCurLimitator buck("NonDcCurLimitator");
    FakeEstimator app("APP", {&dc, &buck});
    FakeEstimator basp("BASP", {&dc, &buck});
    ExpectSteps("DcCurLimitator",
                {{&app, 70, "quen all 70"},
                 {&basp, 50, "quen all 50"},
                 {&basp, 60, "quen all 60"},
                 {&basp, 80.2, "quen all 70"},  // APP's 70 wins now
                 {&app, 80.2, "quen all 80"},
                 {&app, 80.9, ""},  // same integer: nothing logged or written
                 {&basp, 80.5, ""}},
                [&] { return ratio.Take(); });
    EXPECT_TRUE(dev.HasLog("refresh direct charger current of BASP limit 50.000000\n"));
    EXPECT_EQ(dev.CountLogContaining("refresh direct charger current of"), 5);
    EXPECT_EQ(RecordOf("DcCurLimitator"), (LimitRecord{"APP", "80"}));
    EXPECT_DOUBLE_EQ(dc.GetValue(), 80.2);

    // -1 (no demand) takes part like any other value, and lifts the limit when it wins.
    ExpectSteps("NonDcCurLimitator",
                {{&app, -1, ""},   // -1 while nothing was written: no change
                 {&basp, 50, ""},  // APP's -1 is still the smallest
                 {&app, 1500, "quen all 50"},
                 {&app, -1, "quen all -1"}},
                [&] { return limit.Take(); });
    EXPECT_TRUE(dev.HasLog("refresh buck charger current of APP limit -1.000000\n"));
    EXPECT_EQ(RecordOf("NonDcCurLimitator"), (LimitRecord{"APP", "-1"}));
}

TEST_F(LimitatorTest, FailedWritesAreRecordedAndNotRetried) {
    NodeTap coul(dev, LimitNodes::kBaspCoulVdec);
    dev.MakeDir(LimitNodes::kVtermDec);   // opening a directory for writing fails
    DcCurLimitator dc("DcCurLimitator");  // and there is no ichg_ratio node
    NonDcVolLimitator buck("NonDcVoltLimitator");
    FakeEstimator basp("BASP", {&dc, &buck});
    basp.NotifyOne("DcCurLimitator", 30);
    basp.NotifyOne("DcCurLimitator", 30.5);
    EXPECT_EQ(dev.CountLog("refresh direct charger current limit failed\n"), 1);
    EXPECT_EQ(RecordOf("DcCurLimitator"), (LimitRecord{"BASP", "30"}));

    // Every buck type is dropped after its fourth failure; the gauge keeps its value.
    for (int level = 10; level < 15; ++level) {
        basp.NotifyOne("NonDcVoltLimitator", level);
    }
    EXPECT_EQ(coul.Take(), "1011121314");
    EXPECT_EQ(dev.CountLog("buck charger type pd not support set vterm_dec\n"), 1);
    EXPECT_EQ(dev.CountLogContaining("not support set vterm_dec"), 4);
}

TEST_F(LimitatorTest, EqualVoltageDemandsKeepTheEarlierNameAndEveryTypeIsWritten) {
    NodeTap vterm(dev, LimitNodes::kVtermDec);
    NodeTap coul(dev, LimitNodes::kBaspCoulVdec);
    NonDcVolLimitator buck("NonDcVoltLimitator");
    FakeEstimator app("AppEstimator", {&buck});
    FakeEstimator basp("BaspEstimator", {&buck});
    ExpectSteps("NonDcVoltLimitator",
                {{&basp, 40, "40|quen dcp 40quen fcp 40quen pd 40quen wl 40"},
                 {&app, 20, "|"},  // smaller: no change
                 {&basp, 20, "20|quen dcp 20quen fcp 20quen pd 20quen wl 20"}},  // a tie
                [&] { return coul.Take() + "|" + vterm.Take(); });
    EXPECT_TRUE(dev.HasLog("refresh buck charger voltage of AppEstimator limit 20.000000\n"));
    EXPECT_EQ(RecordOf("NonDcVoltLimitator"), (LimitRecord{"AppEstimator", "20"}));
}

// Runs `body` while the process's writes to regular files fail beyond `bytes` (the line is
// cut short, so the writer reports a failure): a node that takes short lines only.
void WithWritesCutAt(rlim_t bytes, const std::function<void()>& body) {
    struct rlimit saved {};
    getrlimit(RLIMIT_FSIZE, &saved);
    struct rlimit cut = {bytes, saved.rlim_max};
    sighandler_t oldHandler = signal(SIGXFSZ, SIG_IGN);
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &cut), 0);
    body();
    setrlimit(RLIMIT_FSIZE, &saved);
    signal(SIGXFSZ, oldHandler);
}

TEST_F(LimitatorTest, ChargerTypeRejectedFourTimesInARowIsDropped) {
    dev.Remove("/log/soh");  // keep the parameter store out of the size limit
    dev.Write(LimitNodes::kVtermDec, "");
    DcVoltLimitator dc("DcVoltLimitator");
    FakeEstimator basp("BASP", {&dc});
    const std::string dropped = "direct charger type wl_sc not support set vterm_dec\n";
    int level = 40;
    auto updates = [&](int times) {
        for (int i = 0; i < times; ++i) {
            basp.NotifyOne("DcVoltLimitator", ++level);
        }
    };
    // "quen wl_sc NN" is 13 bytes, "quen lvc NN" 11.
    WithWritesCutAt(12, [&] { updates(3); });
    updates(1);  // accepted: the count starts again
    WithWritesCutAt(12, [&] { updates(3); });
    EXPECT_EQ(dev.CountLog(dropped), 0);
    WithWritesCutAt(12, [&] { updates(1); });
    EXPECT_EQ(dev.CountLog(dropped), 1);
    const std::string cut = std::string("write file ") + LimitNodes::kVtermDec + " len 12 failed";
    EXPECT_EQ(dev.CountLogContaining(cut), 7);

    NodeTap node(dev, LimitNodes::kVtermDec);
    updates(1);
    EXPECT_EQ(node.Take(), "quen lvc 49quen sc 49");
    EXPECT_TRUE(dev.HasLog("refresh direct charger voltage of BASP limit 49.000000\n"));
    EXPECT_EQ(dev.CountLogContaining("not support set vterm_dec"), 1);
}

}  // namespace
