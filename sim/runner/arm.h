// One arm of a simulation: a scenario run for N simulated days, with the daemon under test or
// without it (the kernel's own behaviour: the model alone, the charger's defaults, nothing
// written to the limit nodes). An arm leaves a result folder:
//   trace.csv      one row per sample (see trace.h)
//   summary.json   the run's outcome and counters (RunSummary)
//   and, with the daemon: quen.log, kernel-writes.log, root/ (the device root it ran on)
//
// How time is driven is the arm's own business (the virtual clock, or with `accelerated` a
// sped-up wall clock shared with the daemon); callers only see "scenario in, result folder out".
//
// Threads: one caller thread; RunArm polls `stop` (set from a signal handler) and then ends
// the run early with the outcome "interrupted". Units: simulated days, real seconds.
#pragma once

#include <json/json.h>
#include <signal.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "sim/runner/scenario.h"

namespace sim {

struct ArmPlan {
    std::string name;     // label in reports, [A-Za-z0-9_.-]+
    std::string profile;  // user profile label ("" for the scenario's own user)
    std::string config;   // configuration label: "none" without the daemon, "default", ...
    Scenario scenario;    // loaded; `days` and `model` already final
    bool withDaemon = true;
    std::string quen;        // the daemon's binary (withDaemon only)
    std::string configFile;  // non-empty: replaces the tree's odm/etc/power/quen.json
    std::string outDir;      // the result folder; created, old results removed
    bool progress = false;   // a progress line on standard error
    // With the daemon: false runs it on the virtual clock (deterministic, as fast as the
    // machine allows), true on the wall clock sped up by the scenario's "speed" with the FUSE
    // fake kernel.
    bool accelerated = false;
    // With the daemon: its informative lines too (quen -d), not only its error lines. About
    // 6000 lines a simulated day with the sample configuration, against a dozen.
    bool daemonInfoLog = false;
};

struct RunSummary {
    std::string arm;
    std::string profile;
    std::string config;
    std::string scenario;
    bool withDaemon = true;
    double simulatedDays = 0;
    double realSeconds = 0;
    bool ok = true;
    std::string outcome;  // "completed", "interrupted", "the daemon exited with 1", ...
    uint64_t samples = 0;
    uint64_t kernelWrites = 0;
    std::map<std::string, uint64_t> writesByNode;
    double fccStartMah = 0;
    double fccEndMah = 0;
    double cyclesEnd = 0;
    double swellEnd = 0;
    // Simulated day and new value of each change, in order.
    std::vector<std::pair<double, unsigned>> baspLevels;
    std::vector<std::pair<double, unsigned>> aswScenes;
    int logErrors = 0;  // " E quen: " lines in the daemon's log
    // Virtual clock only: the daemon's CPU time (user + system, s), the turns its threads
    // took, by thread role.
    double daemonCpuSeconds = 0;
    std::map<std::string, uint64_t> turnsByRole;
};

// Runs the arm. Returns 0 when it completed, 1 when the daemon died, 2 when it could not
// start (bad scenario, no FUSE, no daemon binary; message in `error`), 130 when stopped.
// Except for 2, summary.json is written and `summary` filled.
int RunArm(const ArmPlan& plan, const volatile sig_atomic_t* stop, RunSummary& summary,
           std::string& error);

// summary.json of a result folder, both ways. False with a message when unreadable.
bool WriteSummary(const std::string& dir, const RunSummary& s, std::string& error);
bool ReadSummary(const std::string& dir, RunSummary& s, std::string& error);

// CLOCK_MONOTONIC, ns (real time, for run durations).
int64_t MonotonicNs();

// The default daemon configuration file's place under a device root.
inline constexpr const char* kConfigFile = "odm/etc/power/quen.json";

}  // namespace sim
