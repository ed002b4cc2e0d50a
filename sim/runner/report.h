// The report of one run: plots of the trace drawn by gnuplot (SVG) and report.html, which
// summarises the run and shows the plots.
//
// Threads: the runner's thread, after the run.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace sim {

struct RunSummary {
    std::string scenario;
    double simulatedDays = 0;
    double realSeconds = 0;
    double speed = 0;
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
};

// Draws the plots from dir/trace.csv and writes dir/report.html. False with a message when
// gnuplot is missing or fails (the report is then written without plots).
bool WriteReport(const std::string& dir, const RunSummary& summary, std::string& error);

}  // namespace sim
