// One limitator update, as an estimator makes it (NotifyOne on the direct-charger current
// limitator), with and without a change of the value in force.
//
// With a change the demand alternates between 50 and 60 %, below every other demand, so each
// update writes. Floor: replace the system parameter record once, write "quen all N" to the
// ratio node, one write per logged line.
// Without a change the same demand is repeated. No system call is needed; the floor is what
// any combining limitator must do: take a lock and store the demand under the estimator's name.
#include <benchmark/benchmark.h>

#include <fstream>
#include <iterator>
#include <map>
#include <mutex>
#include <string>

#include "bench/bench_support.h"
#include "core/soh_configure.h"
#include "core/soh_estimator.h"
#include "protectors/limit_nodes.h"

namespace {

constexpr const char* kLimitator = "DcCurLimitator";

// An estimator with the protectors the configuration gives "APP" and no monitor.
class BenchEstimator : public SOHEstimator {
public:
    BenchEstimator() : SOHEstimator("APP") {}
    void StartMonitor() override {}
};

BenchEstimator& Estimator() {
    bench::DeclareObjects();
    static BenchEstimator* estimator = new BenchEstimator;
    return *estimator;
}

void limitator_change(benchmark::State& state) {
    BenchEstimator& e = Estimator();
    e.NotifyOne(kLimitator, 60);
    int n = 0;
    for (auto _ : state) {
        e.NotifyOne(kLimitator, (n++ & 1) ? 60.0 : 50.0);
    }
}
BENCHMARK(limitator_change);

void limitator_change_floor(benchmark::State& state) {
    BenchEstimator& e = Estimator();
    e.NotifyOne(kLimitator, 60);
    const bench::LogCount logs = bench::CountLog([&] { e.NotifyOne(kLimitator, 50); });
    const std::string sysPara = bench::Host(SohPaths::kSysParaFile);
    const std::string node = bench::Host(LimitNodes::kIchgRatio);
    std::ifstream in(sysPara, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    int n = 0;
    for (auto _ : state) {
        bench::ReplaceFile(sysPara, bytes, 0660);
        bench::WriteNode(node, (n++ & 1) ? "quen all 60" : "quen all 50");
        bench::WriteLogLines(logs);
    }
    state.counters["log_lines"] = logs.lines;
}
BENCHMARK(limitator_change_floor);

void limitator_same(benchmark::State& state) {
    BenchEstimator& e = Estimator();
    e.NotifyOne(kLimitator, 50);
    for (auto _ : state) {
        e.NotifyOne(kLimitator, 50);
    }
}
BENCHMARK(limitator_same);

void limitator_same_floor(benchmark::State& state) {
    std::mutex lock;
    std::map<std::string, double> demands{{"APP", 50}, {"ASW", 0}, {"BASP", 90}};
    const std::string name = Estimator().GetName();
    for (auto _ : state) {
        std::lock_guard<std::mutex> guard(lock);
        demands[name] = 50;
        benchmark::DoNotOptimize(demands);
    }
}
BENCHMARK(limitator_same_floor);

}  // namespace
