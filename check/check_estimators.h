// The per-estimator part of a configuration check: each estimator's slice is run through that
// estimator's own parsers (batteries, stages, scenes, swell tables, monitors, parameters) and
// every failure becomes a problem with its JSON path; and, for a device root, the battery
// entry each estimator would choose there.
//
// Preconditions: the estimator and protector registries are declared and QUEN_ROOT points at
// a scratch root while validating (the parsers load records and read kernel nodes; the scratch
// keeps the device root untouched and the result independent of its records). Single thread.
#pragma once

#include <json/json.h>

#include <string>
#include <vector>

#include "check/check_findings.h"

// `slice` is the estimator's configuration slice as the daemon hands it over; `base` its path.
void CheckEstimatorSlice(const std::string& name, const Json::Value& slice, const std::string& base,
                         Findings& findings);

// Checks a "Protectors" array against the protector registry.
void CheckProtectors(const Json::Value& member, const std::string& base, Findings& findings);

// What one estimator would use on a device.
struct EstimatorChoice {
    std::string estimator;
    std::string batteryPath;  // path of the chosen battery entry; "" when none applies
    std::string battery;      // its "Name"
    // (what, which), e.g. ("BaspPolicy", "2.0"); for APP the limits it restores at start
    // from the device's parameter record, e.g. ("restores NonDcCurLimitator", "1500 (set by
    // APP)").
    std::vector<std::pair<std::string, std::string>> uses;
};

// The battery entry of `slice` that applies to the device under QUEN_ROOT, with the policy,
// table and scenes it names; estimators without batteries report their protectors only.
EstimatorChoice ChooseForDevice(const std::string& name, const Json::Value& slice,
                                const std::string& base);
