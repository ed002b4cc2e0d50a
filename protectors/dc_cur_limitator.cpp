// DcCurLimitator: the smallest demand becomes the direct charger's current ratio. Update holds
// lock_ throughout.
#include "protectors/dc_cur_limitator.h"

#include "core/soh_log.h"
#include "protectors/limit_nodes.h"

void DcCurLimitator::Update(SOHEstimator* estimator) {
    if (estimator == nullptr) {
        return;
    }
    std::lock_guard<std::mutex> lock(lock_);
    std::string winner;
    if (!Refresh(estimator, Wins::kSmallest, winner)) {
        return;
    }
    SOH_LOGE("refresh direct charger current of %s limit %f\n", winner.c_str(), value_);
    const int limit = TruncToInt32(value_);
    if (WriteLimitToKernel(winner, LimitNodes::kIchgRatio, std::string("all"), limit) != 0) {
        SOH_LOGE("refresh direct charger current limit failed\n");
    }
}
