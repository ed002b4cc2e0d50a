// What the kernel reports about a running process under /proc: its CPU time (utime + stime of
// all its threads, /proc/PID/stat, sampled at the scheduler tick; and the exact time on CPU of
// its live threads, the first field of /proc/PID/task/TID/schedstat), its memory (VmRSS, VmHWM,
// RssAnon from /proc/PID/status, Pss from /proc/PID/smaps_rollup) and, per thread, the context
// switches (voluntary_ctxt_switches + nonvoluntary_ctxt_switches of /proc/PID/task/TID/status) and
// CPU time.
//
// Thread labels are guessed from where each thread is blocked (/proc/PID/task/TID/syscall),
// which is only meaningful while the daemon is idle: the process's first thread is "main"; a
// thread in accept4 is the control service's listener; a thread in poll is named after the
// kernel nodes it polls (their pollfd array is read from the daemon's memory, which needs the
// right to trace it: the simulator runs as root); a thread in a futex wait with a time-out is
// the anti-swelling loop, one without a time-out the app bridge's heartbeat monitor (idle
// when no heartbeat runs).
//
// Threads: plain functions, no state.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace sim {

struct ThreadStat {
    pid_t tid = 0;
    std::string label;
    uint64_t switches = 0;  // voluntary + involuntary
    uint64_t involuntary = 0;
    double cpuSeconds = 0;  // utime + stime
    double runSeconds = 0;  // time on CPU (schedstat)
};

struct ProcessStat {
    double cpuSeconds = 0;  // utime + stime of every thread, ended ones included (tick-based)
    double runSeconds = 0;  // time on CPU of the live threads (schedstat, ns precision)
    uint64_t rssKb = 0;     // VmRSS
    uint64_t hwmKb = 0;     // VmHWM
    uint64_t anonKb = 0;    // RssAnon
    uint64_t pssKb = 0;     // Pss (smaps_rollup); 0 when not readable
    std::vector<ThreadStat> threads;
};

// False when the process is gone. Labels are filled only when `label` is true.
bool ReadProcess(pid_t pid, ProcessStat& out, bool label);

}  // namespace sim
