// AswEstimator ("ASW"): the anti-swelling estimator.
//
// Its monitor thread keeps the swell accounting of the configured battery (AswBattery) every
// 30 seconds of clock time, lets the battery close days and choose its protection scene, and
// demands the scene's limits: the largest voltage decreases from "DcVoltLimitator" and
// "NonDcVoltLimitator" and the lowest cut-off SOC (with its restore SOC) from the SOC
// strategy. The limits apply only while the user has not turned protection off (protect
// mark < 1), every battery's scene group enables protection and the scheme is open; otherwise
// neutral demands (0 mV, SOC 100/100) are sent.
//
// Accounting starts once the clock has been set (after 2018-12-31 16:00:00 UTC); until then
// the loop polls every second. The enabled flag (board key "asw", not factory, not demo)
// decides whether limits are demanded; accounting runs either way.
//
// Parameters (control service): "smart_charge_enable" (set: protect mark, wakes the loop;
// get: the mark), "smart_charge_support" (set), "smart_charge_feature" (get: support or
// enabled), "smart_charging" (get: smart-charging flag and charger connected, "0" when the
// feature is off), "dbg_asw_aswell_add" (set: a swell added to every "Aswell", for tests).
// Integers are read as atoi reads them ("1\n" is 1, "yes" is 0), the swell addend as stod
// reads it ("0.5 " is 0.5); a value without a number for the addend, a protect mark other than
// 0 or 1, and unknown names answer -1. "smart_charging" answers the flag when the connection
// state cannot be read (a failed read yields the maximum, as every device read does).
//
// Threads: StartMonitor on the main thread; the loop, the battery and the limit demands on the
// monitor thread; GetPara/SetPara on service threads. lock_ guards the limit update, the
// "smart_charging" read and wakeRequested_ (lock order: lock_, then the protectors' locks).
// enabled_ and support_ are atomics. The battery is owned by the monitor thread.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "asw/asw_battery.h"
#include "core/soh_estimator.h"

class AswEstimator : public SOHEstimator {
public:
    static constexpr const char* kBoardKey = "asw";
    static constexpr unsigned kLoopSeconds = 30;
    // Accounting waits until the clock is past this instant (s since the epoch).
    static constexpr int64_t kClockSetSeconds = 1546271999;

    explicit AswEstimator(const std::string& name) : SOHEstimator(name) {}

    void StartMonitor() override;
    void StopMonitor() override {}
    int GetPara(const std::string& name, std::string& value) override;
    int SetPara(const std::string& name, const std::string& value) override;

    // The monitor thread's body: batteries, then the loop until it ends.
    void Monitor();
    // The loop; returns when the scheme is closed or the battery fails.
    void Update();
    // Demands the batteries' limits, or neutral ones (see above). Caller holds lock_ or is
    // the monitor thread before the loop.
    void UpdateLimitValue();
    void UpdateVolLimitValue();
    // Builds the first battery that initialises: 0 (also with no battery), -1 on a
    // configuration fault.
    int InitBatterys();

    bool IsEnabled() const { return enabled_.load(); }

private:
    std::mutex lock_;
    std::condition_variable wake_;
    bool wakeRequested_ = false;  // guarded by lock_
    std::atomic<bool> enabled_{false};
    std::atomic<bool> support_{false};
    std::vector<std::unique_ptr<AswBattery>> batterys_;  // monitor thread only
};
