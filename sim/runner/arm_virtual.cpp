// The arm with the daemon on the virtual clock: the phone's kernel nodes are plain files under
// ROOT/sys, the daemon and the simulator share one clock page, and time moves only when every
// daemon thread waits. The same scenario gives the same trace, kernel writes and daemon log on
// every run (process and thread ids aside), as fast as the two processes can hand the turn to
// each other.
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "sim/model/model_params.h"
#include "sim/runner/arm_internal.h"
#include "sim/runner/daemon_process.h"
#include "sim/vclock/file_kernel.h"
#include "sim/vclock/virtual_clock.h"
#include "sim/vclock/work_dir.h"

namespace fs = std::filesystem;

namespace sim {
namespace {

constexpr int64_t kNsPerSec = 1000000000LL;
// The model is stepped at least this often, so that its events (a charge starting, an aging
// record) are raised within a simulated minute even while every daemon thread sleeps longer.
constexpr int64_t kMaxModelStepNs = 60 * kNsPerSec;

double ChildrenCpuSeconds() {
    struct rusage ru {};
    getrusage(RUSAGE_CHILDREN, &ru);
    return static_cast<double>(ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) +
           static_cast<double>(ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) * 1e-6;
}

}  // namespace

int RunVirtualDaemonArm(const ArmPlan& plan, const volatile sig_atomic_t* stop, RunSummary& summary,
                        std::string& error) {
    const Scenario& sc = plan.scenario;
    const fs::path out = plan.outDir;
    std::error_code ec;
    fs::remove_all(out / "root", ec);  // an earlier run's; this one's is moved there at the end
    WorkDir work(out.string());
    const fs::path root = fs::path(work.Path()) / "root";
    ModelParams params;
    if (!PrepareDaemonArm(plan, root.string(), params, error)) {
        return 2;
    }
    std::unique_ptr<VirtualClock> clock = VirtualClock::Create(
        (fs::path(work.Path()) / ".vclock").string(), sc.startEpoch * kNsPerSec, error);
    if (clock == nullptr) {
        return 2;
    }
    const double start = static_cast<double>(sc.startEpoch);
    VirtualClock* vc = clock.get();
    std::unique_ptr<ModelNodes> nodes = ModelNodes::Create(
        PhoneModel(params, start), (root / "sys").string(), [vc] { return vc->Now(); }, error);
    if (nodes == nullptr) {
        return 2;
    }
    Trace trace;
    if (!trace.Open(out.string(), start, error)) {
        return 2;
    }
    nodes->SetWriteListener([&trace](double t, const std::string& path, const std::string& data,
                                     int result) { trace.AddWrite(t, path, data, result); });
    std::unique_ptr<FileKernel> kernel = FileKernel::Create(
        *nodes, (root / "sys").string(), nodes->DrivenPaths(), nodes->EventPaths(), *clock, error);
    if (kernel == nullptr) {
        return 2;
    }
    SwellProbe swellProbe;
    const bool haveSwell = swellProbe.Init(root.string(), error);
    if (!haveSwell) {
        fprintf(stderr, "quen-sim: %s: no swelling estimate in the trace: %s\n", plan.name.c_str(),
                error.c_str());
    }

    DaemonProcess daemon;
    const fs::path log = out / "quen.log";
    const std::map<std::string, std::string> env = {
        {"QUEN_ROOT", root.string()},
        {"QUEN_VCLOCK", clock->PagePath()},
        {"TZ", sc.timezone},
    };
    unsetenv("QUEN_LOG_FILE");  // its standard error already goes to quen.log
    const double cpuBefore = ChildrenCpuSeconds();
    const int64_t realStart = MonotonicNs();
    const std::vector<std::string> args =
        plan.daemonInfoLog ? std::vector<std::string>{"-d"} : std::vector<std::string>{};
    if (!daemon.Start(plan.quen, args, env, log.string(), error)) {
        return 2;
    }

    ArmSampler sampler(trace, summary, start);
    ArmProgress progress(plan.name, sc.days, plan.progress);
    const int64_t endNs = static_cast<int64_t>(sc.days * 86400.0 * kNsPerSec);
    const int64_t sampleNs = static_cast<int64_t>(sc.sampleSeconds * kNsPerSec);
    int64_t nextSample = 0;
    DaemonArmSampler samples(*nodes, haveSwell ? &swellProbe : nullptr, sampler);
    int64_t syncedAt = -1;
    auto beforeTurn = [&] {
        if (syncedAt != vc->MonoNs()) {
            kernel->Sync();
            syncedAt = vc->MonoNs();
        }
    };
    auto afterTurn = [&] { kernel->Collect(); };
    int status = 0;
    bool gone = false;
    auto alive = [&] { return !gone && !(stop != nullptr && *stop) && daemon.Running(status); };
    double day = 0;
    for (;;) {
        const VirtualClock::Outcome outcome = clock->RunDue(beforeTurn, afterTurn, alive);
        if (stop != nullptr && *stop) {
            summary.ok = false;
            summary.outcome = "interrupted";
            break;
        }
        if (outcome == VirtualClock::Outcome::kGone) {
            gone = true;
            summary.ok = false;
            summary.outcome = "the daemon " + DaemonProcess::Describe(status);
            break;
        }
        if (outcome == VirtualClock::Outcome::kStalled) {
            summary.ok = false;
            summary.outcome = "the daemon's thread " + clock->StalledRole() +
                              " did not give its turn back within " +
                              std::to_string(static_cast<int>(clock->stallSeconds)) + " s";
            break;
        }
        const int64_t now = clock->MonoNs();
        if (now >= nextSample) {
            day = samples.Sample();
            nextSample += sampleNs;
        }
        if (now >= endNs) {
            break;
        }
        progress.Show(day, (MonotonicNs() - realStart) * 1e-9);
        const int64_t next =
            std::min({clock->NextDeadline(), nextSample, endNs, now + kMaxModelStepNs});
        clock->AdvanceTo(next);
        nodes->Tick();
    }
    daemon.Stop(SIGKILL, 3000);  // every thread waits for a turn that will not come
    summary.daemonCpuSeconds = ChildrenCpuSeconds() - cpuBefore;
    summary.turnsByRole = clock->TurnsByRole();
    if (summary.outcome != "interrupted" && summary.ok) {
        day = (clock->MonoNs() * 1e-9) / 86400.0;
    }
    summary.realSeconds = (MonotonicNs() - realStart) * 1e-9;
    summary.simulatedDays = day;
    progress.Show(day, summary.realSeconds, true);
    kernel.reset();  // its node files stay open until then
    if (!work.MoveOut("root", (out / "root").string(), error)) {
        fprintf(stderr, "quen-sim: %s: %s\n", plan.name.c_str(), error.c_str());
    }
    return FinishDaemonArm(plan, trace, log, summary);
}

}  // namespace sim
