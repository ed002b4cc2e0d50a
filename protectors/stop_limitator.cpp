// StopLimitator: a zero demand allows charging for the rest of the process. Update holds lock_
// throughout.
#include "protectors/stop_limitator.h"

#include "core/soh_log.h"

void StopLimitator::Update(SOHEstimator* estimator) {
    if (estimator == nullptr) {
        return;
    }
    std::lock_guard<std::mutex> lock(lock_);
    StoreDemand(estimator);
    for (const auto& demand : demands_) {
        if (demand.second == 0.0) {
            NoteWinner(demand.first, value_ != 0.0);
            value_ = 0.0;
            SOH_LOGI("StopLimitator allow charging\n");
            return;
        }
    }
    if (value_ == 0.0) {  // an earlier update allowed charging; that stands
        SOH_LOGI("StopLimitator allow charging\n");
    }
}
