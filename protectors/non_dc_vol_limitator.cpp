// NonDcVolLimitator: the largest demand becomes the fuel gauge's and the buck-charger types'
// voltage decrease. Update and Match hold lock_ throughout.
#include "protectors/non_dc_vol_limitator.h"

#include "core/device_stream.h"
#include "core/soh_log.h"
#include "protectors/limit_nodes.h"

NonDcVolLimitator::NonDcVolLimitator(const std::string& name)
    : SOHLimitator(name), types_{{"dcp", 0}, {"fcp", 0}, {"pd", 0}, {"wl", 0}} {}

void NonDcVolLimitator::Update(SOHEstimator* estimator) {
    UpdateCombined(estimator, Wins::kLargest, "buck charger voltage",
                   [this](const std::string& winner, int limit) {
                       // The fuel gauge follows the same decrease; a failure here is only
                       // logged by the writer.
                       DeviceWriter(LimitNodes::kBaspCoulVdec).Write(std::to_string(limit));
                       for (const std::string& type : WriteVtermDec(types_, winner, limit)) {
                           SOH_LOGE("buck charger type %s not support set vterm_dec\n",
                                    type.c_str());
                       }
                   });
}

bool NonDcVolLimitator::Match(const std::string& type) {
    std::lock_guard<std::mutex> lock(lock_);
    return MatchType(types_, type);
}
