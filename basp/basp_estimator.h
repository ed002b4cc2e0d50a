// BaspEstimator ("BASP"): the battery aging safety policy.
//
// Its monitor thread waits for the battery-health driver to publish a new aging record (POLLPRI
// on the aging-data node), rebuilds the configured battery from configuration for every record,
// lets it choose its aging stage and send its policy to the kernel, and demands the resulting
// voltage decrements and current limits from "DcVoltLimitator", "NonDcVoltLimitator",
// "DcCurLimitator" and "NonDcCurLimitator", in that order. When the monitor ends it hands the
// limitators neutral values.
//
// Configuration (the estimator's object): "Protectors", a "Battery" array of battery entries
// (the first that applies to this device is used) and one stage array per policy name.
//
// Ownership: created once by the estimator pool; lives for the process. Threads: StartMonitor
// and StopMonitor run on the main thread; everything else on the detached monitor thread,
// which owns the batteries of one event. The limitators guard their own state.
#pragma once

#include <poll.h>

#include <memory>
#include <string>
#include <vector>

#include "basp/basp_battery.h"
#include "core/soh_backoff.h"
#include "core/soh_estimator.h"

class BaspEstimator : public SOHEstimator {
public:
    static constexpr const char* kBoardKey = "basp";
    // Neutral demands: no voltage decrement, full direct-charging ratio (percent), no buck
    // current limit (mA).
    static constexpr double kNeutralDcVolt = 0.0;
    static constexpr double kNeutralNonDcVolt = 0.0;
    static constexpr double kNeutralDcCur = 100.0;
    static constexpr double kNeutralNonDcCur = 2147483647.0;

    explicit BaspEstimator(const std::string& name) : SOHEstimator(name) {}

    void StartMonitor() override;
    void StopMonitor() override;

    // The poll loop: one record at once, then one per POLLPRI wake-up until the scheme is
    // closed (0), the node cannot be opened at start, or poll itself fails (-1). A wake-up that
    // brings no whole record (POLLHUP/POLLERR/POLLNVAL without POLLPRI, a read that fails or
    // comes short) closes the node, backs off (1 s doubling to 5 min, through the clock seam;
    // first failure logged, then counts) and opens it again; the record found on re-opening
    // is applied. A closed scheme is noticed after each wake-up and each back-off step.
    int Select();
    // Opens the aging-data node read-only for POLLPRI; 0, or -1 (logged).
    int CreatePollfd(struct pollfd& pfd);
    // Reads one record from the start of `fd` and applies it; false when no whole record could
    // be read (logged when `logFailure`). A short record is dropped.
    bool ProcEvents(int fd, bool logFailure = true);
    // Builds the battery of this device from configuration into `batterys`: the number of
    // batteries (0 or 1), or -1 when the configuration has no battery list.
    int InitBatterys(std::vector<std::unique_ptr<BaspBattery>>& batterys);
    // Combines the batteries' policies and demands the four limits.
    void UpdateLimitValue(std::vector<std::unique_ptr<BaspBattery>>& batterys);

protected:
    // Blocks until the aging-data node signals (poll without time-out through the clock seam);
    // poll's result. The one place a test may substitute the kernel's signal.
    virtual int WaitEvent(struct pollfd& pfd);

private:
    void Monitor();  // the monitor thread's body
    // Ends a run of node failures, logging the recovery when there was one.
    static void Recovered(SohBackoff& backoff);
    void Notify(double dcVolt, double nonDcVolt, double dcCur, double nonDcCur);
};
