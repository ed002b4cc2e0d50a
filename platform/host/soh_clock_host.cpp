// Host clock seam: real clocks scaled by QUEN_CLOCK_SPEED and offset by QUEN_CLOCK_START, a
// manual clock driven by tests, or the simulator's virtual clock (QUEN_VCLOCK).
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>

#include "platform/host/soh_clock_test.h"
#include "platform/host/vclock_client.h"
#include "platform/host/vclock_page.h"
#include "platform/soh_clock.h"

namespace {

constexpr int64_t kNsPerMs = 1000000LL;
constexpr int64_t kNsPerSec = 1000000000LL;
// A manual-clock waiter re-checks the clock at least this often (real time).
constexpr int64_t kManualSliceNs = 1 * kNsPerMs;

int64_t RealWallNs() {
    struct timespec ts {};
    clock_gettime(CLOCK_REALTIME, &ts);
    return static_cast<int64_t>(ts.tv_sec) * kNsPerSec + ts.tv_nsec;
}

int64_t RealMonoNs() {
    struct timespec ts {};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * kNsPerSec + ts.tv_nsec;
}

// Scaled real clock, fixed at first use from the environment.
struct RealClock {
    int64_t speed = 1;
    int64_t wallAtStart = 0;
    int64_t monoAtStart = 0;

    RealClock() {
        monoAtStart = RealMonoNs();
        wallAtStart = RealWallNs();
        if (const char* s = getenv("QUEN_CLOCK_SPEED")) {
            char* end = nullptr;
            long long v = strtoll(s, &end, 10);
            if (end != s && *end == '\0' && v >= 1 && v <= 1000000000LL) {
                speed = v;
            }
        }
        // QUEN_CLOCK_ANCHOR (CLOCK_MONOTONIC ns, not in the future) is the real instant at which
        // the wall clock showed QUEN_CLOCK_START: processes given the same three values share
        // one accelerated clock exactly (the simulator and the daemon it runs).
        if (const char* s = getenv("QUEN_CLOCK_ANCHOR")) {
            char* end = nullptr;
            long long v = strtoll(s, &end, 10);
            if (end != s && *end == '\0' && v > 0 && v <= monoAtStart) {
                monoAtStart = v;
            }
        }
        if (const char* s = getenv("QUEN_CLOCK_START")) {
            char* end = nullptr;
            long long v = strtoll(s, &end, 10);
            if (end != s && *end == '\0' && v >= 0 && v < (LLONG_MAX / kNsPerSec)) {
                wallAtStart = v * kNsPerSec;
            }
        }
    }
    int64_t Elapsed() const { return (RealMonoNs() - monoAtStart) * speed; }
};

RealClock& Real() {
    static RealClock clock;
    return clock;
}

// Manual clock shared by all threads of a test process.
struct ManualClock {
    std::atomic<bool> on{false};
    std::atomic<int64_t> wall{0};
    std::atomic<int64_t> mono{0};
    std::atomic<int> sleepers{0};
};

ManualClock& Manual() {
    static ManualClock clock;
    return clock;
}

// Real duration to wait for `ns` of clock time (rounded up so that a wait never ends early).
int64_t ToReal(int64_t ns) {
    int64_t speed = Real().speed;
    return ns <= 0 ? 0 : (ns + speed - 1) / speed;
}

void RealSleep(int64_t ns) {
    struct timespec ts {
        static_cast<time_t>(ns / kNsPerSec), static_cast<long>(ns % kNsPerSec)
    };
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

bool VirtualParticipant() {
    return !Manual().on.load() && VClockClient::On() && VClockClient::Participant();
}

// poll(2) on the virtual clock. An event node (one the simulator registered) signals
// POLLPRI|POLLERR, as sysfs does, once for every batch of events raised since this thread last
// saw it; other open descriptors never signal; a closed one answers POLLNVAL at once. The
// thread gives its turn back until an event, its time-out, or for ever.
int VirtualPoll(struct pollfd* fds, nfds_t nfds, int timeoutMs) {
    thread_local uint64_t seen[VClockPage::kMaxNodes];
    thread_local uint64_t known = 0;
    constexpr nfds_t kMaxFds = 64;  // descriptors past these are never event nodes
    int node[kMaxFds];
    uint64_t mask = 0;
    int ready = 0;
    for (nfds_t i = 0; i < nfds; ++i) {
        fds[i].revents = 0;
        if (i < kMaxFds) {
            node[i] = -1;
        }
        if (fds[i].fd < 0) {
            continue;
        }
        if (fcntl(fds[i].fd, F_GETFD) < 0) {
            fds[i].revents = POLLNVAL;
            ++ready;
            continue;
        }
        const int n = i < kMaxFds ? VClockClient::NodeOf(fds[i].fd) : -1;
        if (n >= 0) {
            node[i] = n;
            mask |= 1ULL << n;
            if ((known & (1ULL << n)) == 0) {
                seen[n] = VClockClient::NodeEvents(n);
                known |= 1ULL << n;
            }
        }
    }
    if (ready > 0) {
        return ready;
    }
    const int64_t now = VClockClient::MonoNs();
    const int64_t deadline =
        timeoutMs < 0 ? VClockPage::kNever : now + static_cast<int64_t>(timeoutMs) * kNsPerMs;
    for (;;) {
        for (nfds_t i = 0; i < nfds && i < kMaxFds; ++i) {
            if (node[i] >= 0 && VClockClient::NodeEvents(node[i]) > seen[node[i]]) {
                fds[i].revents = POLLPRI | POLLERR;
                ++ready;
            }
        }
        if (ready > 0) {
            for (nfds_t i = 0; i < nfds && i < kMaxFds; ++i) {
                if (fds[i].revents != 0) {
                    seen[node[i]] = VClockClient::NodeEvents(node[i]);
                }
            }
            return ready;
        }
        if (timeoutMs == 0 || VClockClient::MonoNs() >= deadline) {
            return 0;
        }
        VClockClient::Wait(deadline, nullptr, mask);
    }
}

}  // namespace

namespace SohClock {

int64_t WallNs() {
    if (Manual().on.load()) {
        return Manual().wall.load();
    }
    if (VClockClient::On()) {
        return VClockClient::WallNs();
    }
    return Real().wallAtStart + Real().Elapsed();
}

time_t Time(time_t* out) {
    time_t t = static_cast<time_t>(WallNs() / kNsPerSec);
    if (out != nullptr) {
        *out = t;
    }
    return t;
}

int64_t MonoNs() {
    if (Manual().on.load()) {
        return Manual().mono.load();
    }
    if (VClockClient::On()) {
        return VClockClient::MonoNs();
    }
    return Real().Elapsed();
}

void SleepNs(int64_t ns) {
    if (ns <= 0) {
        return;
    }
    if (VClockClient::On() && !Manual().on.load()) {
        const int64_t deadline = VClockClient::MonoNs() + ns;
        while (VClockClient::MonoNs() < deadline) {
            if (VClockClient::Participant()) {
                VClockClient::Wait(deadline, nullptr, 0);
            } else {
                RealSleep(kManualSliceNs);
            }
        }
        return;
    }
    if (!Manual().on.load()) {
        RealSleep(ToReal(ns));
        return;
    }
    SohClock::detail::SleeperScope sleeping;
    int64_t deadline = Manual().mono.load() + ns;
    while (Manual().on.load() && Manual().mono.load() < deadline) {
        RealSleep(kManualSliceNs);
    }
}

namespace detail {

void WaitOnce(std::condition_variable& cv, std::unique_lock<std::mutex>& lock, int64_t ns) {
    if (VirtualParticipant()) {
        const int64_t now = VClockClient::MonoNs();
        const int64_t deadline =
            ns >= VClockPage::kNever - now ? VClockPage::kNever : now + std::max<int64_t>(ns, 0);
        lock.unlock();
        VClockClient::Wait(deadline, &cv, 0);
        lock.lock();
        return;
    }
    const bool sliced = Manual().on.load() || VClockClient::On();
    int64_t real = sliced ? std::min(ns, kManualSliceNs) : ToReal(ns);
    cv.wait_for(lock, std::chrono::nanoseconds(real));
}

void WaitOnceForever(std::condition_variable& cv, std::unique_lock<std::mutex>& lock) {
    if (VirtualParticipant()) {
        lock.unlock();
        VClockClient::Wait(VClockPage::kNever, &cv, 0);
        lock.lock();
        return;
    }
    if (VClockClient::On() && !Manual().on.load()) {
        cv.wait_for(lock, std::chrono::nanoseconds(kManualSliceNs));
        return;
    }
    cv.wait(lock);
}

SleeperScope::SleeperScope() {
    Manual().sleepers.fetch_add(1);
}
SleeperScope::~SleeperScope() {
    Manual().sleepers.fetch_sub(1);
}

}  // namespace detail

void NotifyOne(std::condition_variable& cv) {
    NotifyAll(cv);  // on the virtual clock every waiter re-checks; elsewhere one is enough
}

void NotifyAll(std::condition_variable& cv) {
    if (VClockClient::On()) {
        VClockClient::Notify(&cv);
    }
    cv.notify_all();
}

int Poll(struct pollfd* fds, nfds_t nfds, int timeoutMs) {
    if (VirtualParticipant()) {
        return VirtualPoll(fds, nfds, timeoutMs);
    }
    if (!Manual().on.load() && !VClockClient::On()) {
        if (timeoutMs <= 0) {
            return poll(fds, nfds, timeoutMs);
        }
        int64_t real = ToReal(timeoutMs * kNsPerMs);
        return poll(fds, nfds,
                    static_cast<int>(std::max<int64_t>(1, (real + kNsPerMs - 1) / kNsPerMs)));
    }
    SohClock::detail::SleeperScope sleeping;
    int64_t deadline = MonoNs() + static_cast<int64_t>(timeoutMs) * kNsPerMs;
    for (;;) {
        int rc = poll(fds, nfds, 1);
        if (rc != 0) {
            return rc;
        }
        if (timeoutMs == 0 || (timeoutMs > 0 && MonoNs() >= deadline)) {
            return 0;
        }
    }
}

}  // namespace SohClock

namespace SohClockTest {

void SetManual(int64_t wallNs) {
    Manual().wall.store(wallNs);
    Manual().mono.store(0);
    Manual().on.store(true);
}

void Advance(int64_t ns) {
    if (ns > 0) {
        Manual().wall.fetch_add(ns);
        Manual().mono.fetch_add(ns);
    }
}

void SetWall(int64_t wallNs) {
    Manual().wall.store(wallNs);
}

int Sleepers() {
    return Manual().sleepers.load();
}

}  // namespace SohClockTest
