// CvtEstimator ("CVT"): waits for the charger driver's charge-start event and lets the
// matched battery time the constant-voltage phase of that charge (CvtBattery).
//
// Configuration (the "CVT" section): "Battery", an array of battery objects, each with a text
// "Name" (see cvt_battery.h for the keys); the first battery that applies is used.
//
// Start: nothing when the scheme is closed; a board that does not list "cvt" is only logged.
// The monitor runs on one detached thread: it arms the event node by reading it, waits for a
// priority event without time-out, measures the charge, re-arms and waits again, until the
// scheme is closed; then the run state becomes "stop". A wake-up without a priority event, or
// a node that cannot be armed again, is retried on a back-off (1 s doubling to 5 min, through
// the clock seam; first failure logged, then counts), never in a tight loop.
//
// Ownership: created once by the estimator pool, lives for the process; owns its battery.
// Threads: constructed on the main thread; battery_ is set and used by the monitor thread
// only (InitCvt runs there before the loop).
#pragma once

#include <memory>
#include <string>

#include "core/soh_estimator.h"
#include "cvt/cvt_battery.h"

class CvtEstimator : public SOHEstimator {
public:
    static constexpr const char* kBoardKey = "cvt";

    explicit CvtEstimator(const std::string& name) : SOHEstimator(name) {}
    void StartMonitor() override;

    // Picks the first configured battery that applies. 0; -1 when the configuration is
    // malformed; 1 when no battery applies.
    int InitCvt();
    // The event loop; returns 0 when the scheme was closed, -1 when the node cannot be armed
    // at start or poll fails.
    int Select();
    // The battery in use; null before InitCvt found one.
    CvtBattery* Battery() { return battery_.get(); }

private:
    void Monitor();  // runs on the detached monitor thread
    std::unique_ptr<CvtBattery> battery_;
};
