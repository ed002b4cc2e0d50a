// NonDcCurLimitator: the smallest demand becomes the buck charger's current limit. Update holds
// lock_ throughout.
#include "protectors/non_dc_cur_limitator.h"

#include "core/soh_log.h"
#include "protectors/limit_nodes.h"

void NonDcCurLimitator::Update(SOHEstimator* estimator) {
    UpdateCombined(estimator, Wins::kSmallest, "buck charger current",
                   [this](const std::string& winner, int limit) {
                       if (WriteLimitToKernel(winner, LimitNodes::kIchgLimit, std::string("all"),
                                              limit) != 0) {
                           SOH_LOGE("refresh buck charger current limit failed\n");
                       }
                   });
}
