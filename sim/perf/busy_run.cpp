// The busy run: the scenario's phone for some simulated days (see perf_runs.h).
#include <signal.h>
#include <time.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "sim/fakefs/fake_kernel.h"
#include "sim/model/model_nodes.h"
#include "sim/model/model_params.h"
#include "sim/perf/perf_common.h"
#include "sim/perf/perf_nodes.h"
#include "sim/perf/perf_runs.h"
#include "sim/perf/proc_stats.h"

namespace sim {
namespace {

constexpr double kWarmUpDays = 0.5;
// Read once per anti-swelling pass (its debug hook).
constexpr const char kAswPassNode[] = "devices/platform/vorlan_batt_soh/asw/asw_time_speed";

bool HasRunning(const ProcessStat& p) {
    for (const ThreadStat& t : p.threads) {
        if (t.label == "running") {
            return true;
        }
    }
    return false;
}

void SleepUs(int64_t us) {
    struct timespec ts {
        static_cast<time_t>(us / 1000000), static_cast<long>(us % 1000000) * 1000L
    };
    nanosleep(&ts, nullptr);
}

}  // namespace

bool RunBusy(const PerfOptions& opt, const Scenario& sc, BusyResult& out, std::string& error) {
    ModelParams params;
    if (!LoadModelParams(sc.model, params, error)) {
        return false;
    }
    const std::string dir = opt.workDir + "/busy";
    const std::string root = dir + "/root";
    if (!PrepareRoot(sc, root, error)) {
        return false;
    }
    const double speed = std::max(1.0, std::round(opt.busySpeed > 0 ? opt.busySpeed : sc.speed));
    const SimClock clock = SimClock::StartNow(sc.startEpoch, static_cast<int64_t>(speed));
    std::unique_ptr<ModelNodes> model = ModelNodes::Create(
        PhoneModel(params, static_cast<double>(sc.startEpoch)), root + "/sys",
        [&clock] { return clock.Now(); }, error);
    if (model == nullptr) {
        return false;
    }
    InstrumentedNodes nodes(*model);
    FakeKernel kernel(nodes);
    if (!kernel.Mount(root + "/sys", error)) {
        return false;
    }
    StorageWatch storage;
    DaemonProcess daemon;
    const std::string log = dir + "/quen.log";
    auto tick = [&model] { model->Tick(); };
    bool ok = storage.Start(root, {"/log", "/splash2", "/data"}, error) &&
              StartDaemon(daemon, opt.quen, root, clock, sc.timezone, log, error) &&
              RunFor(clock.RealUntil(sc.startEpoch + kWarmUpDays * 86400.0), daemon, tick, error);
    ProcessStat before;
    ProcessStat after;
    uint64_t logBefore = 0;
    if (ok) {
        ok = ReadProcess(daemon.Pid(), before, false);
        storage.Reset();
        nodes.Reset();
        logBefore = CountLines(log);
        const double startDay = (clock.Now() - sc.startEpoch) / 86400.0;
        ok = ok && RunFor(opt.busyDays * 86400.0 / speed, daemon, tick, error) &&
             ReadProcess(daemon.Pid(), after, true);
        out.days = (clock.Now() - sc.startEpoch) / 86400.0 - startDay;
        if (ok && out.days <= 0) {
            error = "no simulated time passed";
            ok = false;
        }
    }
    if (ok) {
        out.cpuSeconds = after.cpuSeconds - before.cpuSeconds;
        out.runSeconds = after.runSeconds - before.runSeconds;
        out.rssKb = after.rssKb;
        out.hwmKb = after.hwmKb;
        out.pssKb = after.pssKb;
        out.anonKb = after.anonKb;
        // Labels tell where a thread waits: look again until none is caught running.
        ProcessStat labelled = after;
        for (int i = 0; i < 200 && HasRunning(labelled); ++i) {
            SleepUs(500);
            ReadProcess(daemon.Pid(), labelled, true);
        }
        for (const ThreadStat& t : after.threads) {
            double run = t.runSeconds;
            for (const ThreadStat& b : before.threads) {
                run -= b.tid == t.tid ? b.runSeconds : 0;
            }
            std::string label = "thread " + std::to_string(t.tid);
            for (const ThreadStat& l : labelled.threads) {
                if (l.tid == t.tid && l.label != "running") {
                    label = l.label;
                }
            }
            out.threadRunSeconds[label] += run;
        }
        out.aswRunSeconds = out.threadRunSeconds["ASW monitor"];
        out.files = storage.ByFile();
        for (const auto& [path, access] : nodes.ByPath()) {
            out.nodeReads[path] = access.reads;
            out.nodeWrites[path] = access.writes;
        }
        out.aswPasses = static_cast<double>(out.nodeReads[kAswPassNode]);
        out.logLines = CountLines(log) - logBefore;
    }
    daemon.Stop(SIGTERM, 3000);  // before the unmount: its open nodes would hold the mount
    storage.Stop();
    kernel.Unmount();
    return ok;
}

}  // namespace sim
