// Every device path of the aging policy, in one table. These are device paths: streams and file
// helpers map them under the root when they open them, and messages show them as they stand.
#pragma once

namespace BaspNodes {

// Aging data published by the battery-health driver: the 32-byte BatteryAgingData record;
// raises POLLPRI when a new record is ready.
inline constexpr const char kAgingData[] = "/sys/devices/platform/vorlan_batt_soh/basp/basp_data";
// Where the chosen stage goes back to the driver: the 16-byte BatteryAgingPolicy record.
inline constexpr const char kPolicy[] = "/sys/devices/platform/vorlan_batt_soh/basp/basp_policy";
// Maximum charging current, mA, 4 raw bytes in native order; 0 or unreadable: use configuration.
inline constexpr const char kIChgMax[] = "/sys/devices/platform/vorlan_batt_soh/basp/basp_ichg_max";
// Step of the termination voltage, mV, 4 bytes big-endian (a device-tree cell).
inline constexpr const char kNdcVtermStep[] = "/proc/device-tree/vorlan_charger/ndc_vterm_step";
// The 88-byte battery_herald_data record for the weekly report.
inline constexpr const char kHeraldData[] =
    "/sys/devices/platform/vorlan_batt_soh/basp/basp_herald_data";
// Report interval, s, 4 raw bytes in native order.
inline constexpr const char kHeraldInterval[] =
    "/sys/devices/platform/vorlan_batt_soh/quen_herald_report_interval";
// Termination voltage the charger is set to, decimal text.
inline constexpr const char kChargeTermVolt[] =
    "/sys/class/vn_power/charger/charge_data/charge_term_volt_setting";
// Persistent record of one battery: kDbPrefix + battery name + kDbSuffix.
inline constexpr const char kDbPrefix[] = "/log/soh/basp_";
inline constexpr const char kDbSuffix[] = ".dat";

}  // namespace BaspNodes
