// SOHEstimator: base of every estimator. An estimator has a name, its slice of the
// configuration, the protectors it may drive (created through the protector pool when it is
// constructed), a run state and a monitor thread.
//
// Threads: constructed on the main thread (start-up). NotifyOne/NotifyStrategy/
// NotifySocStrategy are called from the estimator's monitor thread and, for "APP", from service
// threads; demands are guarded by `demandLock_`, never held while a protector runs. The run state
// has its own lock; the monitor's final change to "stop" is also made under
// EstimatorStateLock and announced on EstimatorStateChanged, which `main` waits on.
#pragma once

#include <json/json.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "core/soh_object_pool.h"
#include "core/soh_protector.h"

// Guards the run-state transitions that `main` supervises; `main` is the only waiter.
extern std::mutex EstimatorStateLock;
extern std::condition_variable& EstimatorStateChanged;
// Number of run-state changes announced so far (guarded by EstimatorStateLock), so that `main`
// also sees a change announced before it began to wait.
extern uint64_t EstimatorStateEvents;

// What an estimator sends to steer the SOC protector.
struct SocStrategy {
    uint32_t Type = 0;
    uint32_t HighSoc = 0;
    uint32_t LowSoc = 0;
    uint32_t SmartChgSign = 0;
    uint32_t ShutDownSign = 0;
    bool Force = false;
};

class SOHEstimator {
public:
    explicit SOHEstimator(const std::string& name);
    virtual ~SOHEstimator() = default;
    SOHEstimator(const SOHEstimator&) = delete;
    SOHEstimator& operator=(const SOHEstimator&) = delete;

    // Starts the monitor thread unless the scheme is closed or the board disables it.
    virtual void StartMonitor() = 0;
    virtual void StopMonitor() {}
    // Named parameters for the control service; the base knows none and answers 0.
    virtual int GetPara(const std::string& name, std::string& value);
    virtual int SetPara(const std::string& name, const std::string& value);

    // Adds `p` with no demand (-1.0), or resets its demand if it is registered already.
    void RegisterSafeProtector(SOHProtector* p);
    // This estimator's demand on `p`; -1.0 when `p` is not registered.
    double GetLimitValue(SOHProtector* p) const;
    const Json::Value* GetJsonValue() const { return &configure_; }
    const std::string& GetName() const { return name_; }
    std::string GetRunState() const;
    void SetRunState(const std::string& state);

    // Demands `value` from the registered protector named `protectorName` and lets it update;
    // nothing happens when this estimator has no such protector.
    void NotifyOne(const std::string& protectorName, double value);
    void NotifyStrategy(const std::string& protectorName, SohStrategy strategy);
    void NotifySocStrategy(const SocStrategy& strategy);
    void NotifySocStrategy(uint32_t type, uint32_t highSoc, uint32_t lowSoc, bool force);

protected:
    // The start rules every monitor follows: false (nothing started) when the scheme is closed
    // or `boardKey` (when not empty) is not enabled by the board.
    bool CanStartMonitor(const std::string& boardKey);
    // Sets "run" and runs `body` on a detached thread; when `body` returns the state becomes
    // "stop" (or "restart" after RestartOnExit) under EstimatorStateLock and `main` is notified.
    void RunMonitorThread(std::function<void()> body);
    // Called by a monitor that wants `main` to start it again once it has ended.
    void RestartOnExit() { restartOnExit_ = true; }
    // Sets `state` under EstimatorStateLock and wakes `main` ("restart" asks it to call
    // StartMonitor again; "stop" tells it this estimator has ended).
    void AnnounceRunState(const std::string& state);

    // The registered protector named `name`, or null.
    SOHProtector* GetProtector(const std::string& name) const;

    double limit_ = -1.0;  // left to the subclasses

private:
    // Finds the registered protector named `name` (first in key order); null when absent.
    SOHProtector* FindProtector(const std::string& name) const;

    const std::string name_;
    mutable std::mutex demandLock_;  // guards the demand values of protectors_
    // protector -> (spare, last demand); the set of keys is fixed after construction.
    std::map<SOHProtector*, std::pair<double, double>> protectors_;
    Json::Value configure_;
    mutable std::mutex stateLock_;  // guards runState_
    std::string runState_ = "stop";
    std::atomic<bool> restartOnExit_{false};
};

// The two process-wide registries (created on first use, live until exit).
SOHObjectPool<SOHEstimator>& EstimatorPool();
SOHObjectPool<SOHProtector>& ProtectorPool();
