// CfsdEstimator ("CFSD"): the fast capacity estimator's place in the daemon.
//
// Its monitor starts under the same rules as every estimator (scheme not closed, board key
// "cfsd" enabled). This build carries no capacity algorithm: the monitor logs that and ends,
// so that supervision sees it stop. Created once by the estimator pool; lives for the process.
#pragma once

#include <string>

#include "core/soh_estimator.h"

class CfsdEstimator : public SOHEstimator {
public:
    static constexpr const char* kBoardKey = "cfsd";

    explicit CfsdEstimator(const std::string& name) : SOHEstimator(name) {}
    void StartMonitor() override;

private:
    void Monitor();  // runs on the estimator's detached thread
};
