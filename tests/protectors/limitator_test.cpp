// The current and voltage limitators: how demands combine, when the kernel is written, what
// the lines and records look like, and how failing charger types are dropped.
#include <signal.h>
#include <sys/resource.h>

#include <cmath>
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

TEST_F(LimitatorTest, SmallestCurrentIsWrittenWhenItsIntegerChanges) {
    NodeTap node(dev, LimitNodes::kIchgRatio);
    DcCurLimitator dc("DcCurLimitator");
    FakeEstimator asw("ASW", {&dc});
    FakeEstimator basp("BASP", {&dc});

    asw.NotifyOne("DcCurLimitator", 70);
    EXPECT_EQ(node.Take(), "quen all 70");
    basp.NotifyOne("DcCurLimitator", 50);
    EXPECT_EQ(node.Take(), "quen all 50");
    EXPECT_TRUE(dev.HasLog("refresh direct charger current of BASP limit 50.000000\n"));
    EXPECT_EQ(RecordOf("DcCurLimitator"), (LimitRecord{"BASP", "50"}));
    basp.NotifyOne("DcCurLimitator", 60);
    EXPECT_EQ(node.Take(), "quen all 60");

    basp.NotifyOne("DcCurLimitator", 80.2);  // ASW's 70 wins now
    EXPECT_EQ(node.Take(), "quen all 70");
    asw.NotifyOne("DcCurLimitator", 80.2);
    EXPECT_EQ(node.Take(), "quen all 80");
    dev.ClearLogs();
    asw.NotifyOne("DcCurLimitator", 80.9);  // same integer: nothing logged or written
    basp.NotifyOne("DcCurLimitator", 80.5);
    EXPECT_EQ(node.Take(), "");
    EXPECT_TRUE(dev.Logs().empty());
    EXPECT_DOUBLE_EQ(dc.GetValue(), 80.2);
}

TEST_F(LimitatorTest, NoDemandWinsOnCurrentLimitatorsAndLiftsTheLimit) {
    NodeTap node(dev, LimitNodes::kIchgLimit);
    NonDcCurLimitator buck("NonDcCurLimitator");
    FakeEstimator app("APP", {&buck});
    FakeEstimator basp("BASP", {&buck});

    app.NotifyOne("NonDcCurLimitator", -1);  // -1 while nothing was written: no change
    EXPECT_EQ(node.Take(), "");
    basp.NotifyOne("NonDcCurLimitator", 50);  // APP's -1 is still the smallest
    EXPECT_EQ(node.Take(), "");
    app.NotifyOne("NonDcCurLimitator", 1500);
    EXPECT_EQ(node.Take(), "quen all 50");
    app.NotifyOne("NonDcCurLimitator", -1);
    EXPECT_EQ(node.Take(), "quen all -1");
    EXPECT_TRUE(dev.HasLog("refresh buck charger current of APP limit -1.000000\n"));
    EXPECT_EQ(RecordOf("NonDcCurLimitator"), (LimitRecord{"APP", "-1"}));
}

TEST_F(LimitatorTest, FailedWriteIsRecordedAndNotRetried) {
    DcCurLimitator dc("DcCurLimitator");  // no ichg_ratio node: every write fails
    FakeEstimator basp("BASP", {&dc});
    basp.NotifyOne("DcCurLimitator", 30);
    EXPECT_EQ(dev.CountLog("refresh direct charger current limit failed\n"), 1);
    EXPECT_EQ(RecordOf("DcCurLimitator"), (LimitRecord{"BASP", "30"}));
    basp.NotifyOne("DcCurLimitator", 30.5);
    EXPECT_EQ(dev.CountLog("refresh direct charger current limit failed\n"), 1);
}

TEST_F(LimitatorTest, EqualVoltageDemandsKeepTheEarlierNameAndEveryTypeIsWritten) {
    NodeTap vterm(dev, LimitNodes::kVtermDec);
    NodeTap coul(dev, LimitNodes::kBaspCoulVdec);
    NonDcVolLimitator buck("NonDcVoltLimitator");
    FakeEstimator app("AppEstimator", {&buck});
    FakeEstimator basp("BaspEstimator", {&buck});

    basp.NotifyOne("NonDcVoltLimitator", 40);
    app.NotifyOne("NonDcVoltLimitator", 20);  // smaller: no change
    EXPECT_EQ(coul.Take(), "40");
    EXPECT_EQ(vterm.Take(), "quen dcp 40quen fcp 40quen pd 40quen wl 40");
    basp.NotifyOne("NonDcVoltLimitator", 20);  // a tie: the earlier name wins
    EXPECT_EQ(coul.Take(), "20");
    EXPECT_EQ(vterm.Take(), "quen dcp 20quen fcp 20quen pd 20quen wl 20");
    EXPECT_TRUE(dev.HasLog("refresh buck charger voltage of AppEstimator limit 20.000000\n"));
    EXPECT_EQ(RecordOf("NonDcVoltLimitator"), (LimitRecord{"AppEstimator", "20"}));

    NodeTap dcNode(dev, LimitNodes::kVtermDec);
    DcVoltLimitator dc("DcVoltLimitator");
    FakeEstimator cvt("CVT", {&dc});
    cvt.NotifyOne("DcVoltLimitator", 100);
    EXPECT_EQ(dcNode.Take(), "quen lvc 100quen sc 100quen wl_sc 100");
    EXPECT_TRUE(dev.HasLog("refresh direct charger voltage of CVT limit 100.000000\n"));
}

// Makes the process's writes to regular files fail beyond `bytes` (the line is cut short, so
// the writer reports a failure): a node that takes short lines and rejects longer ones.
class RejectLongerLines {
public:
    explicit RejectLongerLines(rlim_t bytes) {
        getrlimit(RLIMIT_FSIZE, &saved_);
        oldHandler_ = signal(SIGXFSZ, SIG_IGN);
        struct rlimit lim = saved_;
        lim.rlim_cur = bytes;
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &lim), 0);
    }
    ~RejectLongerLines() {
        setrlimit(RLIMIT_FSIZE, &saved_);
        signal(SIGXFSZ, oldHandler_);
    }

private:
    struct rlimit saved_ {};
    sighandler_t oldHandler_;
};

TEST_F(LimitatorTest, ChargerTypeRejectedFourTimesInARowIsDropped) {
    dev.Remove("/log/soh");  // keep the parameter store out of the size limit
    dev.Write(LimitNodes::kVtermDec, "");
    DcVoltLimitator dc("DcVoltLimitator");
    FakeEstimator basp("BASP", {&dc});
    const std::string dropped = "direct charger type wl_sc not support set vterm_dec\n";
    int level = 40;
    auto rejectedUpdates = [&](int times) {
        RejectLongerLines reject(12);  // "quen wl_sc NN" is 13 bytes, "quen lvc NN" 11
        for (int i = 0; i < times; ++i) {
            basp.NotifyOne("DcVoltLimitator", ++level);
        }
    };

    rejectedUpdates(3);
    basp.NotifyOne("DcVoltLimitator", ++level);  // accepted: the count starts again
    rejectedUpdates(3);
    EXPECT_EQ(dev.CountLog(dropped), 0);
    rejectedUpdates(1);
    EXPECT_EQ(dev.CountLog(dropped), 1);

    NodeTap node(dev, LimitNodes::kVtermDec);
    basp.NotifyOne("DcVoltLimitator", ++level);
    EXPECT_EQ(node.Take(), "quen lvc 49quen sc 49");
    EXPECT_EQ(dev.CountLog(dropped), 1);
    EXPECT_EQ(dev.CountLogContaining("not support set vterm_dec"), 1);
}

TEST_F(LimitatorTest, BuckTypesAreDroppedWhileTheGaugeKeepsItsValue) {
    NodeTap coul(dev, LimitNodes::kBaspCoulVdec);
    dev.MakeDir(LimitNodes::kVtermDec);  // opening a directory for writing fails
    NonDcVolLimitator buck("NonDcVoltLimitator");
    FakeEstimator basp("BASP", {&buck});
    for (int level = 10; level < 15; ++level) {
        basp.NotifyOne("NonDcVoltLimitator", level);
    }
    EXPECT_EQ(coul.Take(), "1011121314");
    EXPECT_EQ(dev.CountLog("buck charger type pd not support set vterm_dec\n"), 1);
    EXPECT_EQ(dev.CountLogContaining("not support set vterm_dec"), 4);
}

TEST(LimitatorMatchTest, VoltageLimitatorsServeAllAndTheirOwnTypes) {
    DcVoltLimitator dc("DcVoltLimitator");
    NonDcVolLimitator buck("NonDcVoltLimitator");
    EXPECT_TRUE(dc.Match("all") && dc.Match("sc") && buck.Match("all") && buck.Match("pd"));
    EXPECT_FALSE(dc.Match("SC") || dc.Match("pd") || buck.Match("sc") || buck.Match(""));
    EXPECT_TRUE(DcCurLimitator("DcCurLimitator").Match("anything"));
}

}  // namespace
