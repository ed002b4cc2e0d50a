#include "iscd/iscd_estimator.h"

#include "core/soh_log.h"

void IscdEstimator::StartMonitor() {
    if (!CanStartMonitor(kBoardKey)) {
        return;
    }
    RunMonitorThread([this] { Monitor(); });
}

void IscdEstimator::Monitor() {
    SOH_LOGI("%s monitor has no detection on this build and ends\n", GetName().c_str());
}
