// NonDcCurLimitator (registered as "NonDcCurLimitator"): the charging current of the buck
// charger, in the unit of the ichg_limit node, written as "quen all N". The smallest demand
// wins; an estimator without a demand (-1) therefore wins over every positive demand and -1 is
// written, which lifts the limit.
//
// Ownership: created once by the protector pool, never deleted. Threads and locks: as
// SOHLimitator (estimator and service threads call Update); Update holds lock_ for the whole call,
// writes included.
#pragma once

#include <string>

#include "protectors/soh_limitator.h"

class NonDcCurLimitator : public SOHLimitator {
public:
    explicit NonDcCurLimitator(const std::string& name) : SOHLimitator(name) {}
    void Update(SOHEstimator* estimator) override;
};
