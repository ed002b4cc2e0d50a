// The arm with the daemon on the accelerated clock (`--accelerated`): the phone's kernel nodes
// served by the FUSE fake kernel over ROOT/sys, the rest of the device tree a plain copy under
// ROOT, the real daemon started on it, and both sharing one accelerated clock.
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "sim/fakefs/fake_kernel.h"
#include "sim/model/model_params.h"
#include "sim/runner/arm_internal.h"
#include "sim/runner/daemon_process.h"
#include "sim/runner/sim_clock.h"

namespace fs = std::filesystem;

namespace sim {
namespace {

int CountErrorLines(const fs::path& log) {
    std::ifstream in(log);
    std::string line;
    int n = 0;
    while (std::getline(in, line)) {
        n += line.find(" E quen: ") != std::string::npos ? 1 : 0;
    }
    return n;
}

std::string Tail(const fs::path& log, size_t lines) {
    std::ifstream in(log);
    std::vector<std::string> all;
    std::string line;
    while (std::getline(in, line)) {
        all.push_back(line);
    }
    std::string out;
    for (size_t i = all.size() > lines ? all.size() - lines : 0; i < all.size(); ++i) {
        out += "  " + all[i] + "\n";
    }
    return out;
}

}  // namespace

int FinishDaemonArm(const ArmPlan& plan, Trace& trace, const fs::path& log, RunSummary& summary) {
    trace.Close();
    summary.kernelWrites = trace.Writes();
    summary.writesByNode = trace.WritesByNode();
    summary.logErrors = CountErrorLines(log);
    if (!summary.ok && summary.outcome != "interrupted") {
        fprintf(stderr, "quen-sim: %s: FAILED: %s; the end of its log (%s):\n%s", plan.name.c_str(),
                summary.outcome.c_str(), log.c_str(), Tail(log, 20).c_str());
    }
    if (summary.outcome == "interrupted") {
        return 130;
    }
    return summary.ok ? 0 : 1;
}

bool PrepareDaemonArm(const ArmPlan& plan, const std::string& rootDir, ModelParams& params,
                      std::string& error) {
    const Scenario& sc = plan.scenario;
    if (!LoadModelParams(sc.model, params, error)) {
        error = "\"model\": " + error;
        return false;
    }
    if (access(plan.quen.c_str(), X_OK) != 0) {
        error = "the daemon " + plan.quen + " cannot be run (build it, or pass --quen)";
        return false;
    }
    const fs::path root = rootDir;
    if (!PrepareRoot(sc, root.string(), error)) {
        return false;
    }
    std::error_code ec;
    if (!plan.configFile.empty()) {
        fs::copy_file(plan.configFile, root / kConfigFile, fs::copy_options::overwrite_existing,
                      ec);
        if (ec) {
            error = "cannot use the configuration " + plan.configFile + ": " + ec.message();
            return false;
        }
    }
    return true;
}

int RunDaemonArm(const ArmPlan& plan, const volatile sig_atomic_t* stop, RunSummary& summary,
                 std::string& error) {
    if (!plan.accelerated) {
        return RunVirtualDaemonArm(plan, stop, summary, error);
    }
    const Scenario& sc = plan.scenario;
    ModelParams params;
    if (!FakeKernel::Available(error)) {
        error = "the fake kernel needs FUSE: " + error;
        return 2;
    }
    if (!PrepareDaemonArm(plan, (fs::path(plan.outDir) / "root").string(), params, error)) {
        return 2;
    }
    const fs::path out = plan.outDir;
    const fs::path root = out / "root";

    const SimClock clock = SimClock::StartNow(sc.startEpoch, static_cast<int64_t>(sc.speed));
    std::unique_ptr<ModelNodes> nodes = ModelNodes::Create(
        PhoneModel(params, static_cast<double>(sc.startEpoch)), (root / "sys").string(),
        [&clock] { return clock.Now(); }, error);
    if (nodes == nullptr) {
        return 2;
    }
    Trace trace;
    if (!trace.Open(out.string(), static_cast<double>(sc.startEpoch), error)) {
        return 2;
    }
    nodes->SetWriteListener([&trace](double t, const std::string& path, const std::string& data,
                                     int result) { trace.AddWrite(t, path, data, result); });
    SwellProbe swellProbe;
    const bool haveSwell = swellProbe.Init(root.string(), error);
    if (!haveSwell) {
        fprintf(stderr, "quen-sim: %s: no swelling estimate in the trace: %s\n", plan.name.c_str(),
                error.c_str());
    }

    FakeKernel kernel(*nodes);
    if (!kernel.Mount((root / "sys").string(), error)) {
        return 2;
    }
    DaemonProcess daemon;
    const fs::path log = out / "quen.log";
    const std::map<std::string, std::string> env = {
        {"QUEN_ROOT", root.string()},
        {"QUEN_CLOCK_SPEED", std::to_string(clock.speed)},
        {"QUEN_CLOCK_START", std::to_string(clock.startEpoch)},
        {"QUEN_CLOCK_ANCHOR", std::to_string(clock.anchorNs)},
        {"TZ", sc.timezone},
    };
    unsetenv("QUEN_LOG_FILE");  // its standard error already goes to quen.log
    const int64_t realStart = SimClock::MonoNs();
    const std::vector<std::string> args =
        plan.daemonInfoLog ? std::vector<std::string>{"-d"} : std::vector<std::string>{};
    if (!daemon.Start(plan.quen, args, env, log.string(), error)) {
        kernel.Unmount();
        return 2;
    }

    ArmSampler sampler(trace, summary, static_cast<double>(sc.startEpoch));
    ArmProgress progress(plan.name, sc.days, plan.progress);
    const double end = static_cast<double>(sc.startEpoch) + sc.days * 86400.0;
    double nextSample = static_cast<double>(sc.startEpoch);
    DaemonArmSampler samples(*nodes, haveSwell ? &swellProbe : nullptr, sampler);
    int status = 0;
    double day = 0;
    for (;;) {
        if (stop != nullptr && *stop) {
            summary.ok = false;
            summary.outcome = "interrupted";
            break;
        }
        if (!daemon.Running(status)) {
            summary.ok = false;
            summary.outcome = "the daemon " + DaemonProcess::Describe(status);
            break;
        }
        const double now = clock.Now();
        if (now >= end) {
            break;
        }
        nodes->Tick();
        if (now >= nextSample) {
            day = samples.Sample();
            nextSample +=
                sc.sampleSeconds * std::max(1.0, std::floor((now - nextSample) / sc.sampleSeconds));
        }
        progress.Show(day, (SimClock::MonoNs() - realStart) * 1e-9);
        // Wake for the next sample, or at least every 5 ms so events are raised on time.
        const double wait = std::min(0.005, std::max(0.0005, clock.RealUntil(nextSample)));
        struct timespec ts {
            0, static_cast<long>(wait * 1e9)
        };
        nanosleep(&ts, nullptr);
    }
    daemon.Stop(SIGTERM, 3000);  // before the unmount: its open nodes would hold the mount
    day = samples.Sample();
    summary.realSeconds = (SimClock::MonoNs() - realStart) * 1e-9;
    summary.simulatedDays = day;
    progress.Show(day, summary.realSeconds, true);
    kernel.Unmount();
    return FinishDaemonArm(plan, trace, log, summary);
}

}  // namespace sim
