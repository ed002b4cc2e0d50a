// The idle runs: one simulated hour with nothing to do, on a plain device tree or on the fake
// kernel (see perf_runs.h).
#include <signal.h>
#include <unistd.h>

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

// Real seconds left to the daemon's start-up (first aging record, monitors armed) before the
// window opens.
constexpr double kSettleSeconds = 3;
}  // namespace

bool RunIdle(const PerfOptions& opt, const Scenario& sc, bool fakeKernel, IdleResult& out,
             std::string& error) {
    ModelParams params;
    if (!LoadModelParams(sc.model, params, error)) {
        return false;
    }
    const std::string dir = opt.workDir + (fakeKernel ? "/idle-fake-kernel" : "/idle-plain");
    const std::string root = dir + "/root";
    if (!PrepareRoot(sc, root, error)) {
        return false;
    }
    // Noon of the first day: off the charger since the morning, the next plug-in hours away.
    const int64_t start = NextLocalHour(sc.startEpoch, 12);
    const double speed = std::max(1.0, std::round(opt.idleSpeed));
    const SimClock clock = SimClock::StartNow(start, static_cast<int64_t>(speed));
    std::unique_ptr<ModelNodes> model;
    std::unique_ptr<InstrumentedNodes> nodes;
    std::unique_ptr<FakeKernel> kernel;
    if (fakeKernel) {
        model = ModelNodes::Create(
            PhoneModel(params, static_cast<double>(start)), root + "/sys",
            [&clock] { return clock.Now(); }, error);
        if (model == nullptr) {
            return false;
        }
        nodes = std::make_unique<InstrumentedNodes>(*model);
        kernel = std::make_unique<FakeKernel>(*nodes);
        if (!kernel->Mount(root + "/sys", error)) {
            return false;
        }
    }
    auto tick = [&model] {
        if (model) {
            model->Tick();
        }
    };
    DaemonProcess daemon;
    ProcessStat before;
    ProcessStat after;
    bool ok = StartDaemon(daemon, opt.quen, root, clock, sc.timezone, dir + "/quen.log", error) &&
              RunFor(kSettleSeconds, daemon, tick, error) &&
              ReadProcess(daemon.Pid(), before, true);
    if (ok && nodes) {
        nodes->Reset();
    }
    const double t0 = clock.Now();
    ok = ok && RunFor(opt.idleSeconds, daemon, tick, error) &&
         ReadProcess(daemon.Pid(), after, false);
    if (ok) {
        out.hours = (clock.Now() - t0) / 3600.0;
        out.cpuSeconds = after.runSeconds - before.runSeconds;
        std::map<pid_t, InstrumentedNodes::Access> accesses;
        if (nodes) {
            accesses = nodes->ByThread();
        }
        for (const ThreadStat& b : before.threads) {
            auto a = std::find_if(after.threads.begin(), after.threads.end(),
                                  [&b](const ThreadStat& t) { return t.tid == b.tid; });
            if (a == after.threads.end()) {
                continue;
            }
            IdleThread t;
            t.label = b.label;
            t.switchesPerHour = static_cast<double>(a->switches - b.switches) / out.hours;
            t.involuntaryPerHour = static_cast<double>(a->involuntary - b.involuntary) / out.hours;
            const InstrumentedNodes::Access& n = accesses[b.tid];
            t.accessesPerHour = static_cast<double>(n.reads + n.writes) / out.hours;
            out.threads.push_back(t);
        }
    }
    daemon.Stop(SIGTERM, 3000);
    if (kernel) {
        kernel->Unmount();
    }
    return ok;
}

}  // namespace sim
