// SOHProtector: base of the objects that turn estimators' demands into kernel limits.
//
// A protector is created once by the protector pool and lives for the process. Update and
// UpdateStrategy may be called from any estimator thread and from service threads; each
// protector serialises them with its own mutex (`lock_`), which guards `value_` and every
// field a subclass adds.
#pragma once

#include <map>
#include <mutex>
#include <string>

class SOHEstimator;

// A strategy table: key -> value, e.g. the SOC keys "Type", "Enable", "LowSoc", "HighSoc".
using SohStrategy = std::map<std::string, double>;

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

protected:
    double value_ = -1.0;      // guarded by lock_
    mutable std::mutex lock_;  // serialises every update of this protector

private:
    const std::string name_;  // the registered name ("DcCurLimitator", "STOP_CHARGE", ...)
};
