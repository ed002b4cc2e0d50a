// Files of the impedance estimator. The kernel nodes it watches come from its configuration
// ("Monitors"); the sample device uses /sys/devices/platform/vorlan_batt_soh/eis/acr_info
// (ACR records) and .../eis/dcr_info (DCR records).
#pragma once

namespace EisNodes {
// Fixed-size record logs, appended one record per measurement (record format version 0).
constexpr const char* kAcrLogFile = "/log/soh/acr.dat";
constexpr const char* kDcrLogFile = "/log/soh/dcr.dat";
// The impedance history (Eis::HistoryData) and where it goes when the battery is changed.
constexpr const char* kHistFile = "/log/soh/eis";
constexpr const char* kHistBackFile = "/log/soh/eis.back";
}  // namespace EisNodes
