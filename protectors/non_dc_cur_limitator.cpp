// NonDcCurLimitator: the smallest demand becomes the buck charger's current limit. Update holds
// lock_ throughout.
#include "protectors/non_dc_cur_limitator.h"

#include "core/soh_log.h"
#include "protectors/limit_nodes.h"

void NonDcCurLimitator::Update(SOHEstimator* estimator) {
    if (estimator == nullptr) {
        return;
    }
    std::lock_guard<std::mutex> lock(lock_);
    std::string winner;
    if (!Refresh(estimator, Wins::kSmallest, winner)) {
        return;
    }
    SOH_LOGE("refresh buck charger current of %s limit %f\n", winner.c_str(), value_);
    const int limit = TruncToInt32(value_);
    if (WriteLimitToKernel(winner, LimitNodes::kIchgLimit, std::string("all"), limit) != 0) {
        SOH_LOGE("refresh buck charger current limit failed\n");
    }
}
