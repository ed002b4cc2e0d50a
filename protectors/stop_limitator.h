// StopLimitator (registered as "STOP_CHARGE"): collects stop-charging demands (codes; -1 means
// no demand). A demand of exactly 0 from any estimator sets the state to 0 ("allow charging");
// once 0 the state stays 0 for the process and every later update reports it again in the log.
// It writes no kernel node and no limit record.
//
// Ownership: created once by the protector pool, never deleted. Threads and locks: as
// SOHLimitator (estimator and service threads call Update); Update holds lock_ for the whole call.
#pragma once

#include <string>

#include "protectors/soh_limitator.h"

class StopLimitator : public SOHLimitator {
public:
    explicit StopLimitator(const std::string& name) : SOHLimitator(name) {}
    void Update(SOHEstimator* estimator) override;
};
