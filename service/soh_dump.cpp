// Collecting the dump: one brief lock at a time, copies only.
#include "service/soh_dump.h"

#include "core/soh_configure.h"
#include "core/soh_estimator.h"
#include "platform/soh_clock.h"
#include "service/app_estimator.h"

SohDumpState CollectDumpState() {
    SohDumpState state;
    state.nowNs = SohClock::WallNs();
    state.configPath = SOHConfigure::GetConfigPath();
    state.configVersion = SOHConfigure::GetConfigVersion();
    state.protectMark = SOHConfigure::GetProtectMark();
    state.smartCharging = SOHConfigure::GetSmartCharging();

    for (const auto& entry : EstimatorPool().Objects()) {
        SohDumpState::Estimator e;
        e.name = entry.first;
        e.runState = entry.second->GetRunState();
        e.schemeClosed = SOHConfigure::IsSchemeClosed(entry.first);
        state.estimators.push_back(std::move(e));
    }
    for (const auto& entry : ProtectorPool().Objects()) {
        state.protectors.push_back(entry.second->Snapshot());
    }
    AppEstimator* app = AppEstimator::FromPool();
    if (app != nullptr) {
        state.heartbeatTimeout = AppEstimator::kBeatTimeoutSeconds;
        for (const auto& beat : app->HeartBeats()) {
            if (beat.second.running) {
                state.heartbeats.push_back({beat.first, beat.second.elapsed});
            }
        }
    }
    return state;
}
