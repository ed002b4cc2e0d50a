// quen-bench: the daemon's hot paths against their floors.
//
//   quen-bench [Google Benchmark options]
//
// Each operation X has a companion X_floor that makes only the system calls X cannot avoid
// (see each benchmark's file). After Google Benchmark's own table the program prints, for
// every pair that ran, the time of both (the median when --benchmark_repetitions is given)
// and their ratio: CPU time of the benchmark's thread (user and system, so that other load on
// the machine does not count), real time for those that span threads (the service round
// trip). Budget: each operation within 3x of its floor.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "bench/bench_support.h"

namespace {

constexpr double kBudgetRatio = 3.0;
constexpr const char kFloorSuffix[] = "_floor";

// Google Benchmark's console output plus the time (ns) of every benchmark, the median of the
// repetitions when there are several.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    // Colours only on a terminal: the output is often kept in a file.
    RatioReporter() : ConsoleReporter(isatty(STDOUT_FILENO) != 0 ? OO_ColorTabular : OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.error_occurred) {
                continue;
            }
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if (run.run_type == Run::RT_Aggregate && !median) {
                continue;
            }
            const std::string name = run.run_name.function_name;
            if (median || medians_.count(name) == 0) {
                const double t = run.run_name.time_type == "real_time" ? run.GetAdjustedRealTime()
                                                                       : run.GetAdjustedCPUTime();
                ns_[name] = t / benchmark::GetTimeUnitMultiplier(run.time_unit) * 1e9;
            }
            if (median) {
                medians_[name] = true;
            }
        }
    }

    // The operation/floor table; false when an operation exceeds the budget.
    bool PrintRatios(FILE* out) const {
        fprintf(out, "\n%-22s %12s %12s %8s  %s\n", "operation", "time", "floor", "ratio",
                "budget 3x");
        bool within = true;
        for (const auto& [name, ns] : ns_) {
            auto floor = ns_.find(name + kFloorSuffix);
            if (floor == ns_.end() || floor->second <= 0) {
                continue;
            }
            const double ratio = ns / floor->second;
            within = within && ratio <= kBudgetRatio;
            fprintf(out, "%-22s %12s %12s %7.2fx  %s\n", name.c_str(), Format(ns).c_str(),
                    Format(floor->second).c_str(), ratio,
                    ratio <= kBudgetRatio ? "within" : "over");
        }
        return within;
    }

private:
    static std::string Format(double ns) {
        char text[32];
        if (ns >= 1e6) {
            snprintf(text, sizeof(text), "%.2f ms", ns / 1e6);
        } else if (ns >= 1e3) {
            snprintf(text, sizeof(text), "%.2f us", ns / 1e3);
        } else {
            snprintf(text, sizeof(text), "%.0f ns", ns);
        }
        return text;
    }

    std::map<std::string, double> ns_;
    std::map<std::string, bool> medians_;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    fprintf(stdout, "quen-bench: device root %s\n", bench::Root().c_str());
    bench::QuietLogs();
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintRatios(stdout);
    benchmark::Shutdown();
    return 0;
}
