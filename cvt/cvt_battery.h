// CvtBattery: times the constant-voltage phase of one qualifying charge of the fitted battery
// and hands the temperature-corrected result to its CvtDataManage.
//
// Battery object (an element of the "CVT" section's "Battery" array):
//   "Name"            policy name (text, required by the estimator)
//   "Product", "Country", "Model"   matched against the device (absent: any)
//   "ChargeCycleMax"  minimum cycle count for a measurement (a newer battery is skipped)
//   "ChargeSocMin"    highest SOC (%) at which a charge may start to be measured
//   "ChargeBeginSoc"  SOC (%) from which the constant-voltage phase may begin
//   "ValidTempMin", "ValidTempMax"     valid mean temperature range, degC, inclusive
//   "ValidValueMin", "ValidValueMax"   valid corrected result range, s, inclusive
//   "TempRecoup": {"Temp": [...], "Ratio": [...]}  temperature correction: ascending
//                     temperature points (degC) and the ratio (percent, 100 = none) at each
//   plus the keys of CvtDataManage.
// A missing or non-integer key logs "<key> not config" (the recoup arrays "Ratio not config" /
// "Temp not config") and the battery is not used.
//
// Measurement, on the CVT monitor thread (all waits through the clock seam): after the access
// conditions (cycles, start SOC, then 5 s later the charger type 3, 4, 9, 10 or 12), one
// sample every 5 s of voltage (mV), current (mA), SOC and charger connection
// ("/sys/class/vn_power/power_event/connect_state", 0 = removed). The phase starts at
// >= 4250 mV with SOC >= the begin SOC and ends when charge done reads 1 with >= 4320 mV and
// SOC >= 100; the mean temperature is taken over the samples after the start. A sample whose
// reads fail (voltage, current, SOC or charger status) is skipped. Removal before the end
// records nothing. Sampling is bounded: kMaxUnreadableSamples skipped samples in a row, or
// kMaxMeasureSeconds since the charge event, abandon the measurement (logged once). So does a
// charge that stops short of the end: kMaxIdleSamples samples in a row in which the battery's
// status reads anything but "Charging" (a state-of-charge cap, a termination voltage lowered
// below 4320 mV, a paused charger), since that charge can no longer be timed and sampling it all
// night would cost thousands of wake-ups. An unreadable status counts as charging.
// Durations are taken on the monotonic clock.
//
// Correction: for Temp[k] <= t < Temp[k+1] the ratio is interpolated linearly between
// Ratio[k] and Ratio[k+1]; below the first point Ratio[0] and from the last point on the last
// ratio applies; the result is value * ratio / 100, rounded to the nearest second.
//
// Threads: Init on the monitor thread before measuring; everything else on that thread too.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <string>
#include <vector>

#include "cvt/cvt_data_manage.h"

class CvtBattery {
public:
    static constexpr int kStartVoltageMv = 4250;
    static constexpr int kEndVoltageMv = 4320;
    static constexpr int kFullSoc = 100;
    static constexpr unsigned kSampleSeconds = 5;
    // 5 minutes of unreadable inputs end a measurement; so does a charge longer than a day.
    static constexpr unsigned kMaxUnreadableSamples = 60;
    static constexpr int64_t kMaxMeasureSeconds = 24 * 3600;
    // 5 minutes with the battery not charging end a measurement that has not reached its end:
    // time for the gauge's SOC to catch up with a charge that is done.
    static constexpr unsigned kMaxIdleSamples = 60;

    // Reads the battery object and loads the record; false when this battery does not apply
    // or its configuration is incomplete.
    bool Init(const Json::Value& battery);
    // Measures one charge from its start event to charge done (or charger removal).
    void ConstantVoltageTime();
    bool AccessConditionJudgment();
    // Checks and stores one measured duration (seconds) with the mean temperature.
    void HandleChargeTimeData(double seconds);
    // The duration `value` (s) corrected for `temperature` (degC).
    int CvtTempAdjust(int value, int temperature) const;

    // Kernel probes; failed reads give the sentinels noted.
    unsigned GetChargerType();    // 5 when unreadable
    unsigned GetChargerStatus();  // 4294967295 when unreadable
    bool IsBatteryFull();         // charge done reads 1
    bool IsCharging();            // status is "Charging" or cannot be read
    unsigned GetBatterySoc();     // 4294967295 when unreadable
    int GetBatteryTemp();         // degC; 2147483647 when unreadable
    // Current (mA, negative when discharging) and voltage (mV); false when either read fails.
    bool GetAverageCurVol(int& currentMa, int& voltageMv);
    void UpdateChargeCycle();  // cycle_ stays as it was when unreadable

    CvtDataManage& Data() { return data_; }

private:
    unsigned cycleMin_ = 0;
    unsigned startSocMax_ = 0;
    int beginSoc_ = 0;
    int tempMin_ = 0;
    int tempMax_ = 0;
    int valueMin_ = 0;
    int valueMax_ = 0;
    std::vector<int> recoupTemp_;
    std::vector<int> recoupRatio_;
    unsigned cycle_ = 0;
    double meanTemp_ = 0.0;  // degC over the samples of the running measurement
    CvtDataManage data_;
};
