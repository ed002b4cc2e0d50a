// StatusLimitator (registered as "StatusLimitator"): publishes a battery status level to the
// short-circuit driver (a level code of the driver's; 0 and below mean no limit). The largest
// demand wins (ties keep the earlier estimator name, -1 takes part). On a change of the integer
// level it records the limit, writes the plain decimal level to iscd_status and, for a level of 1
// or more, tells the driver that limiting is supported by writing the two bytes '1', '\0' to
// iscd_limit_support. That node is never reset here.
//
// Ownership: created once by the protector pool, never deleted. Threads and locks: as
// SOHLimitator (estimator and service threads call Update); Update holds lock_ for the whole call,
// writes included.
#pragma once

#include <string>

#include "protectors/soh_limitator.h"

class StatusLimitator : public SOHLimitator {
public:
    explicit StatusLimitator(const std::string& name) : SOHLimitator(name) {}
    void Update(SOHEstimator* estimator) override;
};
