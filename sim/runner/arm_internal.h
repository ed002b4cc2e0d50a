// Pieces shared by the two kinds of arm (with and without the daemon).
//
// Threads: the arm's one thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "sim/model/model_nodes.h"
#include "sim/model/model_params.h"
#include "sim/runner/arm.h"
#include "sim/runner/swell_probe.h"
#include "sim/runner/trace.h"

namespace sim {

// Records one sample in the trace and the summary's counters and change lists.
class ArmSampler {
public:
    ArmSampler(Trace& trace, RunSummary& summary, double startEpoch)
        : trace_(trace), summary_(summary), start_(startEpoch) {}
    // Returns the sample's simulated day.
    double Add(const ModelSample& s, const SwellEstimate& swell);

private:
    Trace& trace_;
    RunSummary& summary_;
    double start_;
    unsigned lastLevel_ = 0;
    unsigned lastScene_ = 0;
};

// The samples of an arm with the daemon: the model's state and the daemon's swelling estimate,
// read from its records at most once an hour of simulated time (null probe: none).
class DaemonArmSampler {
public:
    DaemonArmSampler(ModelNodes& nodes, SwellProbe* probe, ArmSampler& sampler)
        : nodes_(nodes), probe_(probe), sampler_(sampler) {}
    // Returns the sample's simulated day.
    double Sample();

private:
    ModelNodes& nodes_;
    SwellProbe* probe_;
    ArmSampler& sampler_;
    double nextSwell_ = 0;
    SwellEstimate swell_;
};

// A progress line on standard error (rewritten in place on a terminal, every tenth otherwise).
class ArmProgress {
public:
    ArmProgress(std::string label, double days, bool enabled);
    void Show(double day, double realSeconds, bool last = false);

private:
    std::string label_;
    double days_;
    bool enabled_;
    bool tty_;
    int lastTenth_ = -1;
    int64_t lastShownNs_ = 0;
};

// The start of an arm with the daemon: model parameters, the daemon binary, a fresh device
// root at `rootDir` with the arm's configuration. False with a message.
bool PrepareDaemonArm(const ArmPlan& plan, const std::string& rootDir, ModelParams& params,
                      std::string& error);
// The end of an arm with the daemon, once it is stopped: closes the trace, counts the kernel
// writes and the log's error lines, shows the log's end when the arm failed. Returns the arm's
// exit status.
int FinishDaemonArm(const ArmPlan& plan, Trace& trace, const std::filesystem::path& log,
                    RunSummary& summary);

// The arm with the daemon on the accelerated wall clock and the FUSE fake kernel, and on the
// virtual clock with plain-file nodes.
int RunDaemonArm(const ArmPlan& plan, const volatile sig_atomic_t* stop, RunSummary& summary,
                 std::string& error);
int RunVirtualDaemonArm(const ArmPlan& plan, const volatile sig_atomic_t* stop, RunSummary& summary,
                        std::string& error);
int RunModelArm(const ArmPlan& plan, const volatile sig_atomic_t* stop, RunSummary& summary,
                std::string& error);

}  // namespace sim
