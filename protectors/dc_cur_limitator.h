// DcCurLimitator (registered as "DcCurLimitator"): the charging current of the direct
// (switched-capacitor) charger, as a ratio of its normal current, written as "quen all N" to
// the ichg_ratio node. The smallest demand wins; an estimator without a demand (-1) therefore
// wins over every positive demand and -1 is written, which lifts the limit.
//
// Ownership: created once by the protector pool, never deleted. Threads and locks: as
// SOHLimitator (estimator and service threads call Update); Update holds lock_ for the whole call,
// writes included.
#pragma once

#include <string>

#include "protectors/soh_limitator.h"

class DcCurLimitator : public SOHLimitator {
public:
    explicit DcCurLimitator(const std::string& name) : SOHLimitator(name) {}
    void Update(SOHEstimator* estimator) override;
};
