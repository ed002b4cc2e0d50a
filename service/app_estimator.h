// AppEstimator ("APP"): the bridge through which system applications steer charging.
//
// It owns the control-service parameters routed to "APP". Each accepted set becomes a demand
// on one limitator; a demand that departs from the limitator's default is guarded by a
// heartbeat: unless renewed within 2460 s (counted in 10-second steps) the default is applied
// again, and then again at every step, until the next request for that limitator.
// At start the limits recorded in the system parameter store are re-applied.
//
// Value formats (anything else is refused with -1 and a log line, and nothing is demanded):
//   ichg_limit, ichg_ratio  "all N"           N a decimal integer within 32 bits, negative
//                                             allowed: -1 is demanded like any other value
//                                             (as the smallest current it reaches the node)
//   vterm_dec               "TYPE N"          TYPE served by a voltage limitator ("all", "lvc",
//                                             "dcp", ...), N as above
//   batt_status             digits and blanks, the first number is the level
//   soc_control             "TYPE HIGH LOW" or "TYPE HIGH LOW SMART SHUTDOWN [more...]",
//                           decimal numbers separated by blanks
//   close_scheme            the name of a configured estimator other than "APP"
//   smart_charge_enable     leading integer 0 or 1, as atoi reads it (kept as the protect
//                           mark when there is no "ASW")
// Settled here:
//   - Restoring a recorded current, voltage or status limit at start goes through the
//     heartbeat rule: a value other than the default is held by "APP" for at most one
//     heartbeat period unless renewed, whichever estimator recorded it (that estimator
//     demands its own value again once it runs).
//   - The SOC record is kept as "TYPE LOW HIGH SMART SHUTDOWN"; it is re-applied (reordered
//     to the request form) only when its upper bound is below 100, i.e. when it limits, and
//     without a heartbeat: the restored window stays until the app changes it.
//   - "soc_control" moves the heartbeat before the value is checked, so a refused value
//     still starts, renews or stops it.
//   - The SOC default "1 95 100" is in record order: restoring it after a time-out sends
//     type 1 with upper bound 100 and lower bound 95, a strategy that does not limit.
//   - "vnupd_config" reports compatibleVersion 1 and installLocation "vendor".
//   - "smart_charging" without "ASW": an unreadable charger connection node reads as all
//     ones, so the smart-charging flag alone is answered.
//
// Threads: setters and getters run on service threads under the estimator pool's call lock;
// the heartbeat monitor runs on its own thread. `lock_` guards the heartbeats and is held
// across each demand it causes (lock order: lock_, then the limitators' own locks).
#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>

#include "core/soh_estimator.h"

class AppEstimator : public SOHEstimator {
public:
    static constexpr uint32_t kBeatStepSeconds = 10;
    static constexpr uint32_t kBeatTimeoutSeconds = 2460;
    static constexpr const char* kConnectStateNode =
        "/sys/class/vn_power/power_event/connect_state";

    explicit AppEstimator(const std::string& name);
    ~AppEstimator() override;

    // The estimator pool's "APP" object when it is an AppEstimator, else null; never creates
    // it. Tells the classes apart without run-time type information, which the device build
    // does not have.
    static AppEstimator* FromPool();

    void StartMonitor() override;
    int GetPara(const std::string& name, std::string& value) override;
    int SetPara(const std::string& name, const std::string& value) override;

    struct HeartBeat {
        bool running = false;
        uint32_t elapsed = 0;  // seconds since the last request, in whole steps
    };

    // Heartbeat of a limitator: whether it runs and its elapsed seconds (false/0 if unknown).
    bool IsBeatRunning(const std::string& limitator) const;
    uint32_t BeatElapsed(const std::string& limitator) const;
    // A copy of every heartbeat, by limitator name, taken under lock_ (any thread; waits at
    // most for one heartbeat step or request in progress).
    std::map<std::string, HeartBeat> HeartBeats() const;

private:
    void Monitor();
    void UpdateHeartBeats();  // one 10-second step; lock_ held

    int GetVnupdConfig(std::string& value);
    int GetSmartChargeEnable(std::string& value);
    int GetSmartCharging(std::string& value);
    int GetSmartChargeFeature(std::string& value);
    int SetSmartChargeEnable(const std::string& value);
    int SetSmartChargeSupport(const std::string& value);
    int SetIChg(const std::string& para, const std::string& value, const std::string& limitator);
    int SetVtermDec(const std::string& value);
    int SetBattStatus(const std::string& value);
    int SetSocBeat(const std::string& value);
    int CloseScheme(const std::string& value);

    // Sends the SOC request `value` ("TYPE HIGH LOW [SMART SHUTDOWN]"); -1 when illegal.
    int SetSocControl(const std::string& value);
    // Demands v from L, starting or stopping L's heartbeat by comparing v with L's default.
    void NotifyBeat(const std::string& limitator, int v);
    void StartHeartBeat(const std::string& limitator);
    void StopHeartBeat(const std::string& limitator);
    void RestoreDefValue(const std::string& limitator);
    void RestoreLimit(const std::string& limitator);
    void RestoreSocControl();
    // The "ASW" estimator when it exists (never creates it).
    SOHEstimator* Asw() const;

    const std::map<std::string, std::string> defaults_;  // limitator -> default value text
    mutable std::mutex lock_;                            // guards beats_
    std::condition_variable beatStarted_;                // wakes an idle monitor
    std::map<std::string, HeartBeat> beats_;             // one per limitator with a default
};
