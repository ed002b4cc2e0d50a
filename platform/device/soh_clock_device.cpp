// Device clock seam: the real clocks, unscaled.
#include <errno.h>

#include <chrono>

#include "platform/soh_clock.h"

namespace SohClock {

namespace {
int64_t Read(clockid_t id) {
    struct timespec ts {};
    clock_gettime(id, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
}
}  // namespace

int64_t WallNs() {
    return Read(CLOCK_REALTIME);
}

time_t Time(time_t* out) {
    return time(out);
}

int64_t MonoNs() {
    return Read(CLOCK_MONOTONIC);
}

void SleepNs(int64_t ns) {
    if (ns <= 0) {
        return;
    }
    struct timespec ts {
        static_cast<time_t>(ns / 1000000000LL), static_cast<long>(ns % 1000000000LL)
    };
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

namespace detail {

void WaitOnce(std::condition_variable& cv, std::unique_lock<std::mutex>& lock, int64_t ns) {
    cv.wait_for(lock, std::chrono::nanoseconds(ns));
}

void WaitOnceForever(std::condition_variable& cv, std::unique_lock<std::mutex>& lock) {
    cv.wait(lock);
}

SleeperScope::SleeperScope() {}
SleeperScope::~SleeperScope() {}

}  // namespace detail

void NotifyOne(std::condition_variable& cv) {
    cv.notify_one();
}

void NotifyAll(std::condition_variable& cv) {
    cv.notify_all();
}

int Poll(struct pollfd* fds, nfds_t nfds, int timeoutMs) {
    return poll(fds, nfds, timeoutMs);
}

}  // namespace SohClock
