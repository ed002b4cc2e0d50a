// The measurements of quen-perf, each a run of the real daemon against a simulated phone:
//
//  - Busy: the scenario's phone (model and fake kernel) for some simulated days at a high
//    speed. After half a simulated day of start-up: the daemon's CPU time (utime + stime, and
//    per thread from schedstat) and the bytes it writes to /log, /splash2 and /data, per
//    simulated day and file; kernel-node reads and writes per simulated day; log lines;
//    resident memory (VmRSS, VmHWM, Pss, RssAnon) at the end, every estimator running. The
//    anti-swelling loop waits 30 s after each pass, so at a high speed a pass's own time
//    delays the next: passes per day are counted and CPU is also given at one pass per 30 s.
//  - Idle: one simulated hour with nothing to do (a weekday noon: off the charger, no event
//    due) at a modest speed; each thread's context switches and the daemon's CPU time. All the
//    daemon's waits go through its clock seam, which shortens them by the speed, so T real
//    seconds at speed S stand for T * S seconds of the phone's time: counts are divided by
//    T * S / 3600 to give them per hour. Run twice: on a plain copy of the device tree (node
//    reads never block, as on the phone, so every voluntary switch is a wake-up of the daemon's
//    own: this is the figure; involuntary ones are preemptions by other load) and on the fake
//    kernel, where every node access blocks its reader for the file system's answer; the
//    second run shows what that adds, with the accesses each thread made.
//  - Latency: the aging-data node raises an event (FileNodes::RaiseEvent) with a record that
//    alternates between two aging levels, so every event changes three limits; latency runs
//    from RaiseEvent to the last write to a limit node. Run twice. First with every node
//    served by the fake kernel (FileNodes, writes timestamped as the kernel hands them on):
//    each node access there costs a round trip through the file system, priced on a probe
//    node and subtracted. Then with only the aging-data node on the fake kernel (the device
//    tree's node is a symbolic link into its mount) and every other node a plain file, as
//    sysfs answers in the kernel without a round trip: limit writes are timestamped by
//    inotify, and only the event's notification and record read are the fake kernel's.
//    The second run's difference is the budget's figure.
//
// Every run works in a folder of its own under the work folder (tmpfs when possible, so that the
// records' fdatasync does not wait for this machine's disk).
//
// Threads: each Run* function runs on the caller's thread and starts its own helpers.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "sim/perf/storage_watch.h"
#include "sim/runner/scenario.h"

namespace sim {

struct PerfOptions {
    std::string quen;          // the daemon binary
    std::string workDir;       // where the runs' roots go
    double busyDays = 3;       // simulated days measured (after half a day of start-up)
    double busySpeed = 10000;  // slow enough for one anti-swelling pass per 30 s on FUSE
    double idleSeconds = 30;   // real seconds of each idle window
    double idleSpeed = 120;    // clock speed of the idle runs
    int events = 200;          // aging events of the latency run
};

struct BusyResult {
    double days = 0;        // simulated days measured
    double cpuSeconds = 0;  // utime + stime over those days
    double runSeconds = 0;  // time on CPU over those days (schedstat)
    double aswPasses = 0;   // anti-swelling passes (reads of its time-speed node)
    uint64_t logLines = 0;  // lines logged over those days
    uint64_t rssKb = 0, hwmKb = 0, pssKb = 0, anonKb = 0;
    std::map<std::string, double> threadRunSeconds;        // label -> time on CPU over those days
    double aswRunSeconds = 0;                              // of the anti-swelling thread
    std::map<std::string, StorageWatch::FileBytes> files;  // device path -> writes
    std::map<std::string, uint64_t> nodeReads;             // node -> reads over those days
    std::map<std::string, uint64_t> nodeWrites;            // node -> writes over those days
};

struct IdleThread {
    std::string label;
    double switchesPerHour = 0;     // voluntary + involuntary
    double involuntaryPerHour = 0;  // preemptions: other load on the machine
    double accessesPerHour = 0;     // fake-kernel node accesses made by the thread
};

struct IdleResult {
    double hours = 0;       // simulated hours measured
    double cpuSeconds = 0;  // time on CPU over those hours (schedstat: a few ms, below the
                            // resolution of utime + stime)
    std::vector<IdleThread> threads;
};

// Per event of a latency run, µs: RaiseEvent to the last limit write, the fake kernel's
// estimated share of it, and the difference.
struct LatencySeries {
    std::vector<double> measuredUs;
    std::vector<double> shareUs;
    std::vector<double> ownUs;
};

struct LatencyResult {
    int events = 0;            // per run
    LatencySeries allNodes;    // every node served by the fake kernel
    LatencySeries eventNode;   // only the aging-data node served by it: the budget's figure
    double notifyUs = 0;       // median: event notification and record read
    double readUs = 0;         // median: open, read, close of a node
    double writeUs = 0;        // median: open, write, close of a node
    double readsPerEvent = 0;  // fake-kernel node reads and writes per event (all nodes)
    double writesPerEvent = 0;
    double replacementsPerEvent = 0;  // record replacements per event
    double cpuUs = 0;  // the daemon's time on CPU per event, event node only (schedstat)
};

bool RunBusy(const PerfOptions& opt, const Scenario& sc, BusyResult& out, std::string& error);
bool RunIdle(const PerfOptions& opt, const Scenario& sc, bool fakeKernel, IdleResult& out,
             std::string& error);
bool RunLatency(const PerfOptions& opt, const Scenario& sc, LatencyResult& out, std::string& error);

}  // namespace sim
