// One anti-swelling pass: the battery of the sample configuration accounts the time since the
// last pass in both its data objects (history and today) against its swell table, checks the
// day and the scene, and does not save (the save interval is 20 minutes of clock time).
//
// Floor: the samples a pass cannot do without, each read once (open, read, close): voltage,
// temperature, charger type and cycle count nodes and the first modem signal property, plus
// one write per line the pass logs.
#include <benchmark/benchmark.h>

#include <memory>

#include "asw/asw_battery.h"
#include "asw/asw_common.h"
#include "bench/bench_support.h"
#include "core/soh_configure.h"

namespace {

const Json::Value& AswConfig() {
    return SOHConfigure::GetEstimatorsConfigure()["ASW"];
}

std::unique_ptr<AswBattery> MakeBattery() {
    const Json::Value& config = AswConfig();
    auto battery = std::make_unique<AswBattery>(config, config["Battery"][0]);
    if (battery->Init(true) != 0) {
        bench::Fail("the sample ASW battery does not initialise");
    }
    battery->Update();  // the first update only prepares the objects
    return battery;
}

void asw_pass(benchmark::State& state) {
    std::unique_ptr<AswBattery> battery = MakeBattery();
    for (auto _ : state) {
        benchmark::DoNotOptimize(battery->Update());
    }
}
BENCHMARK(asw_pass);

void asw_pass_floor(benchmark::State& state) {
    std::unique_ptr<AswBattery> battery = MakeBattery();
    const bench::LogCount logs = bench::CountLog([&] { battery->Update(); });
    const std::string paths[] = {
        bench::Host(AswNodes::kBatteryVoltageNow),
        bench::Host(AswNodes::kBatteryTemp),
        bench::Host(AswNodes::kChargerType),
        bench::Host(AswNodes::kBatteryCycleCount),
        bench::Host(std::string("/properties/") + AswNodes::kSimPropPrefix + "0" +
                    AswNodes::kSimPropSuffix),
    };
    for (auto _ : state) {
        for (const std::string& path : paths) {
            bench::ReadNode(path);
        }
        bench::WriteLogLines(logs);
    }
    state.counters["log_lines"] = logs.lines;
}
BENCHMARK(asw_pass_floor);

}  // namespace
