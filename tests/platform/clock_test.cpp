// The manual clock used by every time-driven test: sleepers wake exactly when the clock
// reaches their deadline, and not before.
#include <atomic>
#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "platform/host/soh_clock_test.h"
#include "platform/soh_clock.h"

namespace {

constexpr int64_t kSec = 1000000000LL;

void WaitForSleepers(int n) {
    for (int i = 0; i < 5000 && SohClockTest::Sleepers() < n; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_EQ(SohClockTest::Sleepers(), n);
}

TEST(ManualClock, SleeperWakesOnlyWhenTheDeadlineIsReached) {
    SohClockTest::SetManual(1700000000LL * kSec);
    EXPECT_EQ(SohClock::Time(nullptr), 1700000000);
    std::atomic<bool> woke{false};
    std::thread t([&] {
        SohClock::Sleep(10);
        woke = true;
    });
    WaitForSleepers(1);
    SohClockTest::Advance(9 * kSec);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(woke.load());
    SohClockTest::Advance(1 * kSec);
    t.join();
    EXPECT_TRUE(woke.load());
    EXPECT_EQ(SohClock::Time(nullptr), 1700000010);
    EXPECT_EQ(SohClock::MonoNs(), 10 * kSec);
}

TEST(ManualClock, WaitForEndsOnNotifyOrTimeout) {
    SohClockTest::SetManual(0);
    std::mutex m;
    std::condition_variable cv;
    bool flag = false;
    std::thread t([&] {
        std::unique_lock<std::mutex> lock(m);
        EXPECT_TRUE(SohClock::WaitFor(cv, lock, 3600 * kSec, [&] { return flag; }));
    });
    WaitForSleepers(1);
    {
        std::lock_guard<std::mutex> lock(m);
        flag = true;
    }
    cv.notify_one();
    t.join();

    std::unique_lock<std::mutex> lock(m);
    std::thread adv([] {
        WaitForSleepers(1);
        SohClockTest::Advance(5 * kSec);
    });
    EXPECT_FALSE(SohClock::WaitFor(cv, lock, 5 * kSec, [] { return false; }));
    adv.join();
}

TEST(ManualClock, PollTimesOutOnClockTime) {
    SohClockTest::SetManual(0);
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    struct pollfd p {
        fds[0], POLLIN, 0
    };
    std::thread adv([] {
        WaitForSleepers(1);
        SohClockTest::Advance(2 * kSec);
    });
    EXPECT_EQ(SohClock::Poll(&p, 1, 2000), 0);
    adv.join();
    ASSERT_EQ(write(fds[1], "x", 1), 1);
    EXPECT_EQ(SohClock::Poll(&p, 1, -1), 1);
    close(fds[0]);
    close(fds[1]);
}

}  // namespace
