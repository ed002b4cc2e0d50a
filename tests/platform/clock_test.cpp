// The manual clock used by every time-driven test: sleepers wake exactly when the clock
// reaches their deadline, and not before.
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <thread>

#include <gtest/gtest.h>

#include "platform/host/soh_clock_test.h"
#include "platform/soh_clock.h"

namespace {

constexpr int64_t kSec = 1000000000LL;

// Runs `then` on a new thread once one sleeper is waiting on the clock.
std::thread WhenAsleep(std::function<void()> then) {
    return std::thread([then] {
        for (int i = 0; i < 5000 && SohClockTest::Sleepers() < 1; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_EQ(SohClockTest::Sleepers(), 1);
        then();
    });
}

TEST(ManualClock, SleeperWakesOnlyWhenTheDeadlineIsReached) {
    SohClockTest::SetManual(1700000000LL * kSec);
    std::thread sleeper([] { SohClock::Sleep(10); });
    WhenAsleep([] { SohClockTest::Advance(9 * kSec); }).join();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(SohClockTest::Sleepers(), 1);  // still asleep
    SohClockTest::Advance(1 * kSec);
    sleeper.join();
    EXPECT_EQ(SohClock::Time(nullptr), 1700000010);
    EXPECT_EQ(SohClock::MonoNs(), 10 * kSec);
}

TEST(ManualClock, WaitForEndsOnNotifyOrTimeout) {
    SohClockTest::SetManual(0);
    std::mutex m;
    std::condition_variable cv;
    bool flag = false;  // guarded by m
    std::unique_lock<std::mutex> lock(m);
    std::thread notifier = WhenAsleep([&] {
        std::lock_guard<std::mutex> guard(m);
        flag = true;
        cv.notify_one();
    });
    EXPECT_TRUE(SohClock::WaitFor(cv, lock, 3600 * kSec, [&] { return flag; }));
    notifier.join();
    std::thread advance = WhenAsleep([] { SohClockTest::Advance(5 * kSec); });
    EXPECT_FALSE(SohClock::WaitFor(cv, lock, 5 * kSec, [] { return false; }));
    advance.join();
}

TEST(ManualClock, PollTimesOutOnClockTime) {
    SohClockTest::SetManual(0);
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    pollfd p = {fds[0], POLLIN, 0};
    std::thread advance = WhenAsleep([] { SohClockTest::Advance(2 * kSec); });
    EXPECT_EQ(SohClock::Poll(&p, 1, 2000), 0);
    advance.join();
    ASSERT_EQ(write(fds[1], "x", 1), 1);
    EXPECT_EQ(SohClock::Poll(&p, 1, -1), 1);
}

}  // namespace
