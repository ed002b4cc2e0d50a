// The daemon's life: prepare "/log/soh", read the options, wait out a charger-only boot,
// declare the estimators and protectors, start "APP" and the configured estimators, start the
// control service, then supervise the estimators' run states until none runs and stop the
// service through "ctl.stop".
//
// Threads: runs on the main thread; everything else happens on the estimators' threads and
// the service's threads. The registries are filled here before any estimator thread exists.
#pragma once

#include <functional>
#include <string>

// What the binary plugs in: the factories of its estimator and protector classes (core knows
// none of them) and the start of its control service.
struct SohDeclarations {
    std::function<void()> declareEstimators;  // registers into EstimatorPool()
    std::function<void()> declareProtectors;  // registers into ProtectorPool()
    std::function<void()> startService;       // starts the control service
};

// Looks `name` up in the estimator registry (creating it on first lookup) and starts its
// monitor. 0 when found (even if its monitor declined to start), -1 otherwise.
int StartEstimator(const std::string& name);

// The daemon's main: always returns 0.
int SohMain(int argc, char** argv, const SohDeclarations& declarations);
