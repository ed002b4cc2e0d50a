// The arm without the daemon: the phone model stepped alone, with the charger's defaults.
#include <cmath>

#include "sim/model/model_params.h"
#include "sim/model/phone_model.h"
#include "sim/runner/arm_internal.h"

namespace sim {

int RunModelArm(const ArmPlan& plan, const volatile sig_atomic_t* stop, RunSummary& summary,
                std::string& error) {
    const Scenario& sc = plan.scenario;
    ModelParams params;
    if (!LoadModelParams(sc.model, params, error)) {
        error = "\"model\": " + error;
        return 2;
    }
    Trace trace;
    const double start = static_cast<double>(sc.startEpoch);
    if (!trace.Open(plan.outDir, start, error)) {
        return 2;
    }
    PhoneModel model(params, start);
    ArmSampler sampler(trace, summary, start);
    ArmProgress progress(plan.name, sc.days, plan.progress);
    const int64_t realStart = MonotonicNs();
    const double end = start + sc.days * 86400.0;
    const SwellEstimate noSwell;  // nothing estimates swelling without the daemon
    double day = 0;
    for (double t = start;; t = std::min(end, t + sc.sampleSeconds)) {
        model.AdvanceTo(t);
        ModelSample s;
        s.cell = model.State();
        s.chargeStarts = model.ChargeStarts();
        s.agingRecords = model.AgingRecords();
        s.impedanceMeasurements = model.ImpedanceMeasurements();
        day = sampler.Add(s, noSwell);
        if (t >= end) {
            break;
        }
        if (stop != nullptr && *stop) {
            summary.ok = false;
            summary.outcome = "interrupted";
            break;
        }
        progress.Show(day, (MonotonicNs() - realStart) * 1e-9);
    }
    summary.realSeconds = (MonotonicNs() - realStart) * 1e-9;
    summary.simulatedDays = day;
    progress.Show(day, summary.realSeconds, true);
    trace.Close();
    return summary.outcome == "interrupted" ? 130 : 0;
}

}  // namespace sim
