// The accelerated clock that the simulator and the daemon share: simulated time runs `speed`
// times faster than CLOCK_MONOTONIC from the anchor instant, at which it showed `startEpoch`.
// The daemon is given the same three values (QUEN_CLOCK_START, QUEN_CLOCK_ANCHOR,
// QUEN_CLOCK_SPEED), so both see the same time to the nanosecond. Immutable; any thread.
#pragma once

#include <time.h>

#include <cstdint>

namespace sim {

struct SimClock {
    int64_t startEpoch = 0;  // s
    int64_t anchorNs = 0;    // CLOCK_MONOTONIC, ns
    int64_t speed = 1;

    static int64_t MonoNs() {
        struct timespec ts {};
        clock_gettime(CLOCK_MONOTONIC, &ts);
        return static_cast<int64_t>(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
    }
    static SimClock StartNow(int64_t startEpoch, int64_t speed) {
        return SimClock{startEpoch, MonoNs(), speed};
    }
    // Simulated seconds since the epoch.
    double Now() const {
        return static_cast<double>(startEpoch) +
               static_cast<double>(MonoNs() - anchorNs) * 1e-9 * static_cast<double>(speed);
    }
    // Real seconds from now until simulated time `t`.
    double RealUntil(double t) const { return (t - Now()) / static_cast<double>(speed); }
};

}  // namespace sim
