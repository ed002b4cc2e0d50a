// StatusLimitator: the largest demand becomes the short-circuit driver's status level. Update
// holds lock_ throughout.
#include "protectors/status_limitator.h"

#include "core/device_stream.h"
#include "core/soh_configure.h"
#include "core/soh_log.h"
#include "protectors/limit_nodes.h"

void StatusLimitator::Update(SOHEstimator* estimator) {
    UpdateCombined(
        estimator, Wins::kLargest, "status", [this](const std::string& winner, int level) {
            const std::string text = std::to_string(level);
            SOHConfigure::RefLimitRecord(GetName(), winner, text);
            // Write failures are logged by the writers; the new level is kept either way.
            DeviceWriter(LimitNodes::kIscdStatus).Write(text);
            if (level >= 1) {
                const char supported[2] = "1";  // the driver expects the terminator as well
                DeviceWriter(LimitNodes::kIscdLimitSupport).Write(supported);
            }
        });
}
