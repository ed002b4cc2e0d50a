// SOHProtector: base of the objects that turn estimators' demands into kernel limits.
//
// A protector is created once by the protector pool and lives for the process. Update and
// UpdateStrategy may be called from any estimator thread and from service threads; each
// protector serialises them with its own mutex (`lock_`), which guards `value_`, the winner
// and its change time below, and every field a subclass adds.
//
// For diagnostics every protector also remembers which estimator's demand is in force (the
// winner of its last combination) and the wall time (the clock seam, ns since the epoch) at
// which the value in force or its winner last changed. Snapshot() copies that state, and the
// demands a subclass keeps, under lock_ and nothing else, so a reader never holds the lock
// longer than the copy takes.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "platform/soh_clock.h"

class SOHEstimator;

// A strategy table: key -> value, e.g. the SOC keys "Type", "Enable", "LowSoc", "HighSoc".
using SohStrategy = std::map<std::string, double>;

// A copy of one protector's state, taken at one instant; owns its data.
struct ProtectorSnapshot {
    std::string name;                               // registered name
    double value = -1.0;                            // value in force; -1 no limit set yet
    std::string winner;                             // estimator whose demand is in force; "" none
    int64_t changedAtNs = 0;                        // wall ns of the last change; 0 never
    std::map<std::string, double> demands;          // estimator -> last demand (plain limits)
    std::map<std::string, SohStrategy> strategies;  // estimator -> last table (SOC)
};

class SOHProtector {
public:
    explicit SOHProtector(const std::string& name) : name_(name) {}
    virtual ~SOHProtector() = default;
    SOHProtector(const SOHProtector&) = delete;
    SOHProtector& operator=(const SOHProtector&) = delete;

    // Called after `estimator` changed its demand on this protector; the protector reads the
    // demand with estimator->GetLimitValue(this).
    virtual void Update(SOHEstimator* estimator) = 0;
    // Called with a strategy table from the estimator named `estimator`.
    virtual void UpdateStrategy(const std::string& estimator, SohStrategy strategy) = 0;
    // Whether this protector serves the charger type `type`.
    virtual bool Match(const std::string& type) = 0;

    const std::string& GetName() const { return name_; }
    // The last combined value (-1.0 until something was combined).
    double GetValue() const {
        std::lock_guard<std::mutex> lock(lock_);
        return value_;
    }
    // A copy of the state, taken under lock_ (any thread).
    ProtectorSnapshot Snapshot() const {
        ProtectorSnapshot s;
        s.name = name_;
        std::lock_guard<std::mutex> lock(lock_);
        s.value = value_;
        s.winner = winner_;
        s.changedAtNs = changedAtNs_;
        CopyStateLocked(s);
        return s;
    }

protected:
    // Adds what a subclass keeps (demands, strategies) to `s`; called with lock_ held.
    virtual void CopyStateLocked(ProtectorSnapshot& /*s*/) const {}
    // Notes `winner` as the estimator in force after a combination; the change time moves
    // when `valueChanged` or the winner differs from the one noted before. Caller holds lock_.
    void NoteWinner(const std::string& winner, bool valueChanged) {
        if (valueChanged || winner != winner_) {
            winner_ = winner;
            changedAtNs_ = SohClock::WallNs();
        }
    }

    double value_ = -1.0;      // guarded by lock_
    mutable std::mutex lock_;  // serialises every update of this protector

private:
    const std::string name_;   // the registered name ("DcCurLimitator", "STOP_CHARGE", ...)
    std::string winner_;       // guarded by lock_
    int64_t changedAtNs_ = 0;  // guarded by lock_
};
