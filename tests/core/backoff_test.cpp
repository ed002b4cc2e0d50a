// The retry pace of failing loops: steps double from 1 s to a 5 min cap, only the 1st, 2nd,
// 4th, 8th... failures are to be logged, and Reset ends a run of failures. (The loops' own
// tests show the sleeps on the clock seam.)
#include <gtest/gtest.h>

#include <vector>

#include "core/soh_backoff.h"

namespace {

constexpr int64_t kSec = 1000000000LL;

TEST(BackoffTest, StepsDoubleToTheCapAndOnlyPowersOfTwoAreLogged) {
    SohBackoff b;
    std::vector<int64_t> steps;
    std::vector<uint64_t> logged;
    for (int i = 1; i <= 12; ++i) {
        if (b.Fail()) {
            logged.push_back(b.Failures());
        }
        steps.push_back(b.TakeStepNs() / kSec);
    }
    EXPECT_EQ(steps, (std::vector<int64_t>{1, 2, 4, 8, 16, 32, 64, 128, 256, 300, 300, 300}));
    EXPECT_EQ(logged, (std::vector<uint64_t>{1, 2, 4, 8}));
    // A day at the cap adds about nine lines, not one per turn.
    int lines = 0;
    for (int i = 0; i < 24 * 3600 / 300; ++i) {
        lines += b.Fail() ? 1 : 0;
    }
    EXPECT_LE(lines, 9);

    EXPECT_EQ(b.Reset(), 12u + 24 * 3600 / 300);
    EXPECT_FALSE(b.Failing());
    EXPECT_EQ(b.StepNs(), SohBackoff::kFirstStepNs);
    EXPECT_EQ(b.Reset(), 0u);
    EXPECT_TRUE(b.Fail());  // a new run logs its first failure again
}

}  // namespace
