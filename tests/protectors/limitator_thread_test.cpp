// Limitators driven from many threads at once: updates are serialised, and once the threads
// are done the nodes hold the lines of the combined last demands. Meant to run under
// ThreadSanitizer as well. Demands stay two-digit so that every line has the same length and
// a node file (written from its start, never truncated) holds exactly the last line.
#include <memory>
#include <thread>
#include <vector>

#include "protectors/dc_cur_limitator.h"
#include "protectors/limit_nodes.h"
#include "protectors/soc_limitator.h"
#include "tests/protectors/limitator_test_util.h"

namespace {

using LimitatorThreadTest = ProtectorTest;

TEST_F(LimitatorThreadTest, ConcurrentDemandsSettleOnTheCombinedLastDemands) {
    constexpr int kEstimators = 4;
    for (const char* node :
         {LimitNodes::kIchgRatio, LimitNodes::kSocControl, LimitNodes::kSocStrategy}) {
        dev.Write(node, "");
    }
    DcCurLimitator dc("DcCurLimitator");
    SocLimitator soc("SocLimitator");
    std::vector<std::unique_ptr<FakeEstimator>> own;
    for (int t = 0; t < kEstimators; ++t) {
        own.emplace_back(new FakeEstimator("E" + std::to_string(t), {&dc, &soc}));
    }
    FakeEstimator shared("SHARED", {&dc});
    // Threads 0..3 drive an estimator each; threads 4..7 all drive SHARED, whose last demand
    // is therefore whichever came last: all of them end with the same one. The SOC tables
    // come from two threads per estimator, each ending with the estimator's own table.
    std::vector<std::thread> threads;
    for (int t = 0; t < 2 * kEstimators; ++t) {
        threads.emplace_back([&, t] {
            SOHEstimator& e = (t < kEstimators) ? *own[t] : shared;
            SOHEstimator& socSource = *own[t % kEstimators];
            for (int i = 0; i < 200; ++i) {
                e.NotifyOne("DcCurLimitator", 10 + (i * 7 + t * 13) % 90);
                socSource.NotifySocStrategy(t + 1, 50 + (i + t) % 40, 40, false);
            }
            e.NotifyOne("DcCurLimitator", t < kEstimators ? 60 - t : 58);
            socSource.NotifySocStrategy(t % kEstimators + 1, 80 - t % kEstimators, 40, false);
        });
    }
    for (std::thread& th : threads) {
        th.join();
    }
    EXPECT_EQ(dev.Read(LimitNodes::kIchgRatio), "quen all 57");
    EXPECT_EQ(RecordOf("DcCurLimitator"), (LimitRecord{"E3", "57"}));
    EXPECT_EQ(dev.Read(LimitNodes::kSocControl), "quen 1 40 77");
    EXPECT_EQ(dev.Read(LimitNodes::kSocStrategy), "quen 4");
    EXPECT_EQ(RecordOf("SocLimitator"), (LimitRecord{"E3", "4 40 77 1 0"}));
}

}  // namespace
