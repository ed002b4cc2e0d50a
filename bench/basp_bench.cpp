// One aging-policy event: a 32-byte aging record read from the kernel node becomes the
// battery's level, the policy written back to the kernel, three changed limits (each recorded
// in the system parameter record and written to its node) and the saved battery record.
// Two records alternate, the sample's (level 1) and one with 380 more cycles (level 2), so that
// every event changes the level and the direct-charger voltage and both current limits.
//
// Floor: what such an event must do on the same files: seek and read the record; read the
// current-limit node, the battery-removed node, the report-interval node and the battery
// record (the battery is rebuilt for every event, the record is its only memory); try the
// device-tree vterm step; write the policy; replace the battery record and, once per changed
// limit, the system parameter record; write the limit nodes (the direct-charger voltage to
// each of its three charger types); one write per logged line.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>

#include "basp/basp_battery.h"
#include "basp/basp_estimator.h"
#include "basp/basp_nodes.h"
#include "bench/bench_support.h"
#include "core/soh_configure.h"
#include "core/soh_enviroment.h"
#include "protectors/limit_nodes.h"

namespace {

constexpr const char kSecondRecord[] = "/sys/devices/platform/vorlan_batt_soh/basp/basp_data.b";

struct Records {
    int fds[2] = {-1, -1};
    Records() {
        BaspBattery::BatteryAgingData data{4500, 520, 3, {4100, 4050, 4000, 0, 0}};
        bench::WriteFile(BaspNodes::kAgingData,
                         std::string(reinterpret_cast<char*>(&data), sizeof(data)));
        data.cycleCount = 900;
        bench::WriteFile(kSecondRecord, std::string(reinterpret_cast<char*>(&data), sizeof(data)));
        fds[0] = open(bench::Host(BaspNodes::kAgingData).c_str(), O_RDONLY | O_CLOEXEC);
        fds[1] = open(bench::Host(kSecondRecord).c_str(), O_RDONLY | O_CLOEXEC);
        if (fds[0] < 0 || fds[1] < 0) {
            bench::Fail("cannot open the aging records");
        }
    }
    ~Records() {
        close(fds[0]);
        close(fds[1]);
    }
};

BaspEstimator& Basp() {
    bench::DeclareObjects();
    auto* basp = static_cast<BaspEstimator*>(EstimatorPool().GetObjectByName("BASP"));
    if (basp == nullptr) {
        bench::Fail("no BASP estimator");
    }
    return *basp;
}

void basp_event(benchmark::State& state) {
    BaspEstimator& basp = Basp();
    Records records;
    basp.ProcEvents(records.fds[0]);  // the first event also sends the weekly report
    basp.ProcEvents(records.fds[1]);
    size_t n = 0;
    for (auto _ : state) {
        basp.ProcEvents(records.fds[n++ & 1]);
    }
}
BENCHMARK(basp_event);

void basp_event_floor(benchmark::State& state) {
    BaspEstimator& basp = Basp();
    Records records;
    basp.ProcEvents(records.fds[0]);
    const bench::LogCount logs = bench::CountLog([&] { basp.ProcEvents(records.fds[1]); });
    basp.ProcEvents(records.fds[0]);

    const std::string ichgMax = bench::Host(BaspNodes::kIChgMax);
    const std::string removed = bench::Host(kBatteryRemovedNode);
    const std::string interval = bench::Host(BaspNodes::kHeraldInterval);
    const std::string vtermStep = bench::Host(BaspNodes::kNdcVtermStep);
    const std::string policy = bench::Host(BaspNodes::kPolicy);
    const std::string db =
        bench::Host(std::string(BaspNodes::kDbPrefix) + "QBT41" + BaspNodes::kDbSuffix);
    const std::string sysPara = bench::Host(SohPaths::kSysParaFile);
    const std::string vterm = bench::Host(LimitNodes::kVtermDec);
    const std::string ratio = bench::Host(LimitNodes::kIchgRatio);
    const std::string limit = bench::Host(LimitNodes::kIchgLimit);
    std::string dbBytes;
    std::string sysParaBytes;
    {
        std::ifstream in1(db, std::ios::binary);
        dbBytes.assign(std::istreambuf_iterator<char>(in1), std::istreambuf_iterator<char>());
        std::ifstream in2(sysPara, std::ios::binary);
        sysParaBytes.assign(std::istreambuf_iterator<char>(in2), std::istreambuf_iterator<char>());
    }
    const std::string policyBytes(sizeof(BaspBattery::BatteryAgingPolicy), '\0');
    BaspBattery::BatteryAgingData data{};
    size_t n = 0;
    for (auto _ : state) {
        int fd = records.fds[n++ & 1];
        lseek(fd, 0, SEEK_SET);
        benchmark::DoNotOptimize(read(fd, &data, sizeof(data)));
        bench::ReadNode(ichgMax);
        int missing = open(vtermStep.c_str(), O_RDONLY | O_CLOEXEC);
        if (missing >= 0) {
            close(missing);
        }
        bench::ReadNode(removed);
        bench::ReadWhole(db);
        bench::ReadNode(interval);
        bench::WriteNode(policy, policyBytes);
        bench::ReplaceFile(db, dbBytes, 0660);
        bench::ReplaceFile(sysPara, sysParaBytes, 0660);
        for (const char* type : {"lvc", "sc", "wl_sc"}) {
            bench::WriteNode(vterm, std::string("quen ") + type + " 20");
        }
        bench::ReplaceFile(sysPara, sysParaBytes, 0660);
        bench::WriteNode(ratio, "quen all 80");
        bench::ReplaceFile(sysPara, sysParaBytes, 0660);
        bench::WriteNode(limit, "quen all 4000");
        bench::WriteLogLines(logs);
    }
    state.counters["log_lines"] = logs.lines;
}
BENCHMARK(basp_event_floor);

}  // namespace
