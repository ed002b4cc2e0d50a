// The clock seam: every time the daemon reads and every wait it makes goes through here.
//
// Device build: the real clocks. Host build: QUEN_CLOCK_START=EPOCH_SECONDS sets the wall time
// at process start, QUEN_CLOCK_SPEED=N makes wall and monotonic time run N times faster
// (sleeps, waits and poll time-outs shrink by N). Unit tests may switch the process to a
// manual clock (platform/host/soh_clock_test.h) that only moves when the test advances it;
// sleepers then wake when the advanced time reaches their deadline. Under the simulator,
// QUEN_VCLOCK=PAGE puts the process on a virtual clock that moves only when every thread
// started through SohThread waits here (platform/host/vclock_client.h); a condition variable
// waited on here must then be notified here too (NotifyOne/NotifyAll), so that the waiter is
// scheduled.
//
// Units: nanoseconds unless a name says otherwise. Thread-safe: callable from any thread.
#pragma once

#include <poll.h>
#include <stdint.h>
#include <time.h>

#include <condition_variable>
#include <mutex>

namespace SohClock {

// Wall time in nanoseconds since the epoch.
int64_t WallNs();
// time(2): wall time in whole seconds; also stored in *out when out is not null.
time_t Time(time_t* out);
// Monotonic time in nanoseconds (scaled like wall time); for measuring intervals only.
int64_t MonoNs();

// Sleeps for `ns` of clock time (at least; returns early only when the process ends).
void SleepNs(int64_t ns);
inline void Sleep(unsigned seconds) {
    SleepNs(static_cast<int64_t>(seconds) * 1000000000LL);
}
inline void Usleep(unsigned micros) {
    SleepNs(static_cast<int64_t>(micros) * 1000LL);
}

// Waits on `cv` until pred() holds or `ns` of clock time have passed; returns pred().
// `lock` must be held; pred is evaluated with it held. On the manual test clock the wait
// re-checks pred and the clock every millisecond, so neither a notify nor an Advance is lost.
template <typename Pred>
bool WaitFor(std::condition_variable& cv, std::unique_lock<std::mutex>& lock, int64_t ns,
             Pred pred);

// Waits on `cv` until pred() holds, without a time-out. `lock` must be held.
template <typename Pred>
void Wait(std::condition_variable& cv, std::unique_lock<std::mutex>& lock, Pred pred);

// Wakes the threads waiting on `cv` (through WaitFor or Wait, or directly).
void NotifyOne(std::condition_variable& cv);
void NotifyAll(std::condition_variable& cv);

namespace detail {
// One wait of at most `ns` clock time (a shorter slice on the manual clock).
void WaitOnce(std::condition_variable& cv, std::unique_lock<std::mutex>& lock, int64_t ns);
// One wait without a time-out (may return spuriously).
void WaitOnceForever(std::condition_variable& cv, std::unique_lock<std::mutex>& lock);
// Counts a thread as sleeping on the manual clock for the object's life.
class SleeperScope {
public:
    SleeperScope();
    ~SleeperScope();
    SleeperScope(const SleeperScope&) = delete;
    SleeperScope& operator=(const SleeperScope&) = delete;
};
}  // namespace detail

template <typename Pred>
bool WaitFor(std::condition_variable& cv, std::unique_lock<std::mutex>& lock, int64_t ns,
             Pred pred) {
    detail::SleeperScope sleeping;
    int64_t deadline = MonoNs() + (ns > 0 ? ns : 0);
    while (!pred()) {
        int64_t left = deadline - MonoNs();
        if (left <= 0) {
            return pred();
        }
        detail::WaitOnce(cv, lock, left);
    }
    return true;
}

template <typename Pred>
void Wait(std::condition_variable& cv, std::unique_lock<std::mutex>& lock, Pred pred) {
    // Not a sleeper of the manual clock: moving the clock does not end this wait.
    while (!pred()) {
        detail::WaitOnceForever(cv, lock);
    }
}

// poll(2) with a time-out in clock milliseconds (negative: no time-out).
int Poll(struct pollfd* fds, nfds_t nfds, int timeoutMs);

}  // namespace SohClock
