#include "cfsd/cfsd_estimator.h"

#include "core/soh_log.h"

void CfsdEstimator::StartMonitor() {
    if (!CanStartMonitor(kBoardKey)) {
        return;
    }
    RunMonitorThread([this] { Monitor(); });
}

void CfsdEstimator::Monitor() {
    SOH_LOGI("%s monitor has no estimation on this build and ends\n", GetName().c_str());
}
