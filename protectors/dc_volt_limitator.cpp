// DcVoltLimitator: the largest demand becomes the direct-charger types' termination voltage
// decrease. Update and Match hold lock_ throughout.
#include "protectors/dc_volt_limitator.h"

#include "core/soh_log.h"

DcVoltLimitator::DcVoltLimitator(const std::string& name)
    : SOHLimitator(name), types_{{"lvc", 0}, {"sc", 0}, {"wl_sc", 0}} {}

void DcVoltLimitator::Update(SOHEstimator* estimator) {
    UpdateCombined(estimator, Wins::kLargest, "direct charger voltage",
                   [this](const std::string& winner, int limit) {
                       for (const std::string& type : WriteVtermDec(types_, winner, limit)) {
                           SOH_LOGE("direct charger type %s not support set vterm_dec\n",
                                    type.c_str());
                       }
                   });
}

bool DcVoltLimitator::Match(const std::string& type) {
    std::lock_guard<std::mutex> lock(lock_);
    return MatchType(types_, type);
}
