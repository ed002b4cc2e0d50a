// Runs arms side by side: each in a child process of its own (an arm with the daemon owns a
// FUSE mount and a daemon process), at most `jobs` at once, in the order given.
//
// Stopping: when `*stop` becomes set (the caller's signal handler), the running children are
// sent SIGTERM, finish their arm as "interrupted" and write their results; arms not yet
// started are not started. A child killed outright leaves its arm with exitCode 128 + signal.
//
// Threads: call from a single-threaded process (it forks). `onDone` runs in the caller's
// thread after each arm ends.
#pragma once

#include <signal.h>

#include <functional>
#include <vector>

#include "sim/lab/lab_report.h"

namespace sim {

using ArmDone = std::function<void(const LabArm& arm, size_t finished, size_t total)>;

// Sets each started arm's exitCode (RunArm's result) and, for an arm that could not start
// (exit 2), its error. Returns the number of arms that were started.
size_t RunArmsInParallel(std::vector<LabArm>& arms, int jobs, const volatile sig_atomic_t* stop,
                         const ArmDone& onDone);

// The number of arms to run at once when the user does not say: the cores available.
int DefaultJobs();

}  // namespace sim
