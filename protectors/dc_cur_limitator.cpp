// DcCurLimitator: the smallest demand becomes the direct charger's current ratio. Update holds
// lock_ throughout.
#include "protectors/dc_cur_limitator.h"

#include "core/soh_log.h"
#include "protectors/limit_nodes.h"

void DcCurLimitator::Update(SOHEstimator* estimator) {
    UpdateCombined(estimator, Wins::kSmallest, "direct charger current",
                   [this](const std::string& winner, int limit) {
                       if (WriteLimitToKernel(winner, LimitNodes::kIchgRatio, std::string("all"),
                                              limit) != 0) {
                           SOH_LOGE("refresh direct charger current limit failed\n");
                       }
                   });
}
