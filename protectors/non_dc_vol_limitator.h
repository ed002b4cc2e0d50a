// NonDcVolLimitator (registered as "NonDcVoltLimitator"; the class and registered names differ
// on purpose): the decrease of the charge termination voltage for the buck-charger types
// "dcp", "fcp", "pd" and "wl", and of the fuel gauge's voltage. On a change it first writes the
// plain decimal value to basp_coul_vdec, then "quen TYPE N" to the vterm_dec node once per type.
// The largest demand wins. A type whose write fails four times in a row is taken as
// unsupported by the kernel and skipped for the rest of the process (counts are in memory
// only).
//
// Ownership: created once by the protector pool, never deleted. Threads and locks: as
// SOHLimitator (estimator and service threads call Update); lock_ also guards types_ (the failure
// counts). Update holds it for the whole call, writes included; Match takes it too.
#pragma once

#include <string>
#include <vector>

#include "protectors/soh_limitator.h"

class NonDcVolLimitator : public SOHLimitator {
public:
    explicit NonDcVolLimitator(const std::string& name);
    void Update(SOHEstimator* estimator) override;
    // True for "all" and for the limitator's own charger types (exact, case-sensitive).
    bool Match(const std::string& type) override;

private:
    std::vector<ChargerType> types_;  // fixed order; guarded by lock_
};
