// Configuration load, as the daemon does it once at start: look for the candidates (the
// over-the-air directory, missing here, then the ODM directory with its version file), order
// them, read and parse the sample's quen.json (6 KB with comments).
//
// Floor: the existence checks of the two configuration files and the version file, reading the
// version file and the configuration whole, one write per logged line.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <string>

#include "bench/bench_support.h"
#include "core/soh_configure.h"

namespace {

void LoadOnce() {
    SOHConfigure::ConfigInfo candidates;
    if (SOHConfigure::GetConfigInfo(candidates) != 0) {
        bench::Fail("no configuration in the sample device");
    }
    if (candidates.size() >= 2) {
        SOHConfigure::SortConfigInfo(candidates);
    }
    Json::Value root;
    if (SOHConfigure::ParseJsonFile(candidates.front().first, root) != 0) {
        bench::Fail("the sample configuration does not parse");
    }
    benchmark::DoNotOptimize(root);
}

void config_load(benchmark::State& state) {
    for (auto _ : state) {
        LoadOnce();
    }
}
BENCHMARK(config_load);

void config_load_floor(benchmark::State& state) {
    const bench::LogCount logs = bench::CountLog(LoadOnce);
    const std::string ota =
        bench::Host(std::string(SohPaths::kOtaConfigDir) + SohPaths::kConfigFileName);
    const std::string json =
        bench::Host(std::string(SohPaths::kOdmConfigDir) + SohPaths::kConfigFileName);
    const std::string version =
        bench::Host(std::string(SohPaths::kOdmConfigDir) + SohPaths::kVersionFileName);
    for (auto _ : state) {
        benchmark::DoNotOptimize(access(ota.c_str(), F_OK));
        benchmark::DoNotOptimize(access(json.c_str(), F_OK));
        benchmark::DoNotOptimize(access(version.c_str(), F_OK));
        bench::ReadWhole(version);
        bench::ReadWhole(json);
        bench::WriteLogLines(logs);
    }
    state.counters["log_lines"] = logs.lines;
}
BENCHMARK(config_load_floor);

}  // namespace
