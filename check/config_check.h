// The configuration check behind `quen --check-config`: would a device accept this
// configuration, and if not, why.
//
// Without a file it picks the configuration exactly as start-up does (candidate directories
// under the device root, version files, highest version first, first that parses) and says
// which file it chose and why. It then runs every estimator's own parsers over the document and
// reports every problem with its JSON path, what was expected and what was found; and, when a
// device root is given, which battery entry, policy, table and scenes each estimator would use
// there.
//
// The check reads the device root and the file only; the parsers run against a scratch root
// that is removed afterwards. It changes QUEN_ROOT and the log sink of this process while it
// runs, so it is meant for a process of its own (the daemon's command line, a test case).
#pragma once

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "check/check_estimators.h"
#include "check/check_findings.h"

struct ConfigCheckOptions {
    std::string root;  // device root (host directory); "" when none is given
    std::string file;  // host path of the file to check; "" to pick as start-up does
};

struct ConfigCheckReport {
    std::string root;
    std::string file;              // the file checked (device path when picked from the root)
    std::string version;           // its version ("" when given explicitly)
    std::vector<std::string> why;  // how the file was chosen (the loader's own lines)
    std::string fatal;             // why nothing could be checked ("" when something was)
    std::vector<ConfigProblem> problems;
    std::vector<EstimatorChoice> device;  // filled only with a root
};

// Runs the check. The result is the exit status: 0 clean, 1 problems found, 2 nothing could be
// checked (no root and no file, no configuration found, a file that cannot be read).
int RunConfigCheck(const ConfigCheckOptions& options, ConfigCheckReport& report);

void PrintConfigReport(const ConfigCheckReport& report, FILE* out);
// The same report as one JSON document (with a trailing newline).
std::string ConfigReportJson(const ConfigCheckReport& report, int status);
