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

constexpr int kThreads = 4;
constexpr int kRounds = 200;

// Runs `body(t)` for t = 0 .. 2 * kThreads - 1 on as many threads and waits for all of them.
template <typename Body>
void RunThreads(Body body) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 2 * kThreads; ++t) {
        threads.emplace_back(body, t);
    }
    for (std::thread& th : threads) {
        th.join();
    }
}

std::vector<std::unique_ptr<FakeEstimator>> Estimators(SOHProtector* p) {
    std::vector<std::unique_ptr<FakeEstimator>> out;
    for (int t = 0; t < kThreads; ++t) {
        out.emplace_back(new FakeEstimator("E" + std::to_string(t), {p}));
    }
    return out;
}

TEST_F(LimitatorThreadTest, ConcurrentDemandsSettleOnTheSmallestLastDemand) {
    dev.Write(LimitNodes::kIchgRatio, "");
    DcCurLimitator dc("DcCurLimitator");
    auto own = Estimators(&dc);
    FakeEstimator shared("SHARED", {&dc});
    // Threads 0..3 drive an estimator each; threads 4..7 all drive SHARED, whose last demand
    // is therefore whichever came last: all of them end with the same one.
    RunThreads([&](int t) {
        SOHEstimator& e = (t < kThreads) ? *own[t] : shared;
        for (int i = 0; i < kRounds; ++i) {
            e.NotifyOne("DcCurLimitator", 10 + (i * 7 + t * 13) % 90);
        }
        e.NotifyOne("DcCurLimitator", t < kThreads ? 60 - t : 58);
    });
    EXPECT_EQ(dev.Read(LimitNodes::kIchgRatio), "quen all 57");
    EXPECT_EQ(RecordOf("DcCurLimitator"), (LimitRecord{"E3", "57"}));
}

TEST_F(LimitatorThreadTest, ConcurrentSocStrategiesSettleOnTheLowestBound) {
    dev.Write(LimitNodes::kSocControl, "");
    dev.Write(LimitNodes::kSocStrategy, "");
    SocLimitator soc("SocLimitator");
    auto own = Estimators(&soc);
    RunThreads([&](int t) {
        SOHEstimator& e = *own[t % kThreads];  // two threads per estimator
        for (int i = 0; i < kRounds; ++i) {
            e.NotifySocStrategy(t + 1, 50 + (i + t) % 40, 40, false);
        }
        e.NotifySocStrategy(t % kThreads + 1, 80 - t % kThreads, 40, false);
    });
    EXPECT_EQ(dev.Read(LimitNodes::kSocControl), "quen 1 40 77");
    EXPECT_EQ(dev.Read(LimitNodes::kSocStrategy), "quen 4");
    EXPECT_EQ(RecordOf("SocLimitator"), (LimitRecord{"E3", "4 40 77 1 0"}));
}

}  // namespace
