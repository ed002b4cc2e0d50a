// The command lines of quen-sim's plain run and of its policy lab.
//
//   quen-sim [SCENARIO.json] [--out DIR] [--quen PATH] [--days N] [--speed N] [--no-baseline]
//     runs the scenario with the daemon and, unless --no-baseline, without it (the kernel's
//     own behaviour) as the baseline; DIR/report.html compares the two.
//   quen-sim lab [SCENARIO.json] [--profile P]... [--config NAME=FILE]... [--no-baseline]
//                [--no-default] [--jobs N] [--out DIR] [--quen PATH] [--days N] [--speed N]
//     for each user profile (default: the scenario's own user), runs the arms without the
//     daemon, with the default configuration and with each named configuration (a file that
//     replaces the device's daemon configuration), in parallel; DIR/report.html puts them
//     side by side. Each arm's results are in DIR/arms/ARM/.
//
// Exit status: 0 every arm completed and the report was written; 1 an arm failed (the daemon
// died) or the report could not be written; 2 bad usage or scenario, or the machine cannot
// run an arm (nothing was started); 130 interrupted (the report is still written).
//
// Threads: the process's main thread (it forks the arms' processes and installs handlers for
// SIGINT, SIGTERM and SIGHUP).
#pragma once

#include <string>

namespace sim {

struct SimDefaults {
    std::string scenario;    // used when none is given
    std::string quen;        // the daemon's binary
    std::string profileDir;  // where bare profile names are looked up
};

int PlainRunMain(int argc, char** argv, const SimDefaults& defaults);
int LabMain(int argc, char** argv, const SimDefaults& defaults);

// Parses a positive finite number (the whole text). Shared by the command lines.
bool ParsePositive(const char* text, double& out);

}  // namespace sim
