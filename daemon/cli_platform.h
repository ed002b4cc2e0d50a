// What the command line does differently on the device and on the host build
// (cli_device.cpp and cli_host.cpp; the device build description lists the first, the host
// CMake build the second).
#pragma once

#include <string>

// Makes `root` the device root of this run when `given`; 0 to go on, or the exit status when
// the daemon must not start (host: without QUEN_ROOT and without --root, so that a host run
// never touches the host's own /sys or /log by accident). Messages go to standard error.
int ApplyDaemonRoot(const std::string& root, bool given);

// Runs the configuration check (see check/config_check.h) and prints its report, as text or
// as JSON; the exit status.
int CheckConfigCommand(const std::string& root, const std::string& file, bool json);
