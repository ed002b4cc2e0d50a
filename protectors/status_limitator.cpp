// StatusLimitator: the largest demand becomes the short-circuit driver's status level. Update
// holds lock_ throughout.
#include "protectors/status_limitator.h"

#include "core/device_stream.h"
#include "core/soh_configure.h"
#include "core/soh_log.h"
#include "protectors/limit_nodes.h"

void StatusLimitator::Update(SOHEstimator* estimator) {
    if (estimator == nullptr) {
        return;
    }
    std::lock_guard<std::mutex> lock(lock_);
    std::string winner;
    if (!Refresh(estimator, Wins::kLargest, winner)) {
        return;
    }
    SOH_LOGE("refresh status of %s limit %f\n", winner.c_str(), value_);
    const int level = TruncToInt32(value_);
    const std::string text = std::to_string(level);
    SOHConfigure::RefLimitRecord(GetName(), winner, text);
    // Write failures are logged by the writers; the new level is kept either way.
    DeviceWriter(LimitNodes::kIscdStatus).Write(text);
    if (level >= 1) {
        const char supported[2] = "1";  // the driver expects the terminator as well
        DeviceWriter(LimitNodes::kIscdLimitSupport).Write(supported);
    }
}
