// SohBackoff: the pace of a loop that retries a failing kernel node.
//
// A loop that meets a fault calls Fail() once per failed turn, logs only when it answers true
// (the 1st, 2nd, 4th, 8th, ... failure, so a fault that lasts a day costs about ten log lines),
// then Wait()s one step before it tries again. Steps start at 1 s and double up to 5 min. The
// first success after failures calls Reset(), which answers how many failures it ends (0 when
// there were none) so that the loop can log the recovery once.
//
// All waits go through the clock seam (platform/soh_clock.h). A Wait() lasts one step, so a
// loop that checks for its end after every Wait() notices it within one step.
//
// Units: nanoseconds of clock time. Threads: one object per loop, used by that loop's thread
// only (no locks).
#pragma once

#include <cstdint>

class SohBackoff {
public:
    static constexpr int64_t kFirstStepNs = 1000000000LL;  // 1 s
    static constexpr int64_t kMaxStepNs = 300000000000LL;  // 5 min

    explicit SohBackoff(int64_t firstNs = kFirstStepNs, int64_t maxNs = kMaxStepNs);

    // Counts one failed turn; true when this one is to be logged.
    bool Fail();
    // Sleeps the current step and doubles the next one (up to the cap).
    void Wait();
    // Takes the current step without sleeping (for loops that wait in poll) and doubles the
    // next one; the step taken, ns.
    int64_t TakeStepNs();
    // Ends a run of failures: back to the first step. The number of failures it ended.
    uint64_t Reset();

    bool Failing() const { return failures_ > 0; }
    uint64_t Failures() const { return failures_; }
    // The step the next Wait() sleeps, ns.
    int64_t StepNs() const { return step_; }
    // The step the next Wait() sleeps, whole seconds (for log lines).
    long long StepSeconds() const { return static_cast<long long>(step_ / 1000000000LL); }

private:
    const int64_t first_;
    const int64_t max_;
    int64_t step_;
    uint64_t failures_ = 0;
};
