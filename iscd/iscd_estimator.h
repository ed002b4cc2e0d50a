// IscdEstimator ("ISCD"): the internal short-circuit detector's place in the daemon.
//
// Its monitor starts under the same rules as every estimator (scheme not closed, board key
// "iscd" enabled) and drives "StatusLimitator", "SocLimitator" and "STOP_CHARGE" when a fatal
// short is found. This build carries no detection algorithm: the monitor logs that and ends,
// so that supervision sees it stop. Created once by the estimator pool; lives for the process.
#pragma once

#include <string>

#include "core/soh_estimator.h"

class IscdEstimator : public SOHEstimator {
public:
    static constexpr const char* kBoardKey = "iscd";

    explicit IscdEstimator(const std::string& name) : SOHEstimator(name) {}
    void StartMonitor() override;

private:
    void Monitor();  // runs on the estimator's detached thread
};
