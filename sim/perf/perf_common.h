// Helpers shared by quen-perf's runs: a fresh device root from a scenario, starting the daemon
// on it and waiting for its control service, and sleeping while the phone model advances.
//
// Threads: the caller's thread only.
#pragma once

#include <functional>
#include <string>

#include "sim/runner/daemon_process.h"
#include "sim/runner/scenario.h"
#include "sim/runner/sim_clock.h"

namespace sim {

// Replaces `root` with the scenario's device tree, its properties and node values applied.

// Starts `quen -d` on `root` with the shared clock and the scenario's time zone, its output
// appended to `log`, and waits (up to 20 s) until it has announced its control service.
bool StartDaemon(DaemonProcess& daemon, const std::string& quen, const std::string& root,
                 const SimClock& clock, const std::string& timezone, const std::string& log,
                 std::string& error);

// Sleeps `seconds` of real time, calling `tick` at least every 2 ms (the phone model's clock
// tick); false as soon as the daemon is no longer running (error set).
bool RunFor(double seconds, DaemonProcess& daemon, const std::function<void()>& tick,
            std::string& error);

// The first instant at or after `epoch` that shows `hour`:00 local time (TZ of the process).
int64_t NextLocalHour(int64_t epoch, int hour);

// Lines of a text file.
uint64_t CountLines(const std::string& path);

}  // namespace sim
