// Device paths of the constant-voltage-time estimator: the kernel nodes it reads and the
// record it keeps. Units are those of the kernel node (noted per node); the estimator
// converts them where it says so.
#pragma once

namespace CvtNodes {
// Raises a priority event when a charge starts; read (up to 31 bytes) to arm it again.
constexpr const char* kChargeStartEvent = "/sys/class/vn_power/bq_bci/poll_charge_start_event";
// Battery measurements (power-supply class).
constexpr const char* kBatteryCapacity = "/sys/class/power_supply/Battery/capacity";  // SOC, %
constexpr const char* kBatteryCycleCount = "/sys/class/power_supply/Battery/cycle_count";
constexpr const char* kBatteryCurrentNow = "/sys/class/power_supply/Battery/current_now";  // uA
constexpr const char* kBatteryVoltageNow = "/sys/class/power_supply/Battery/voltage_now";  // uV
constexpr const char* kBatteryTemp = "/sys/class/power_supply/Battery/temp";  // 0.1 degC
constexpr const char* kBatteryFcc = "/sys/class/power_supply/Battery/capacity_fcc";
constexpr const char* kBatteryFccDesign = "/sys/class/power_supply/Battery/charge_full_design";
// "Charging", "Full", "Not charging" or "Discharging", one line.
constexpr const char* kBatteryStatus = "/sys/class/power_supply/Battery/status";
constexpr const char* kBatteryBrand = "/sys/class/power_supply/Battery/brand";  // text
// Charger probes: 0 in an adaptor_detect node means that kind of adaptor is attached.
constexpr const char* kDirectChargerDetect =
    "/sys/class/vn_power/charger/direct_charger/adaptor_detect";
constexpr const char* kDirectChargerScDetect =
    "/sys/class/vn_power/charger/direct_charger_sc/adaptor_detect";
constexpr const char* kChargerType = "/sys/class/vn_power/charger/charge_data/chargerType";
constexpr const char* kChargeDone = "/sys/class/vn_power/charger/charge_data/charge_done_status";
// Charger connection: 0 when no charger is attached (the same node the app bridge reads).
constexpr const char* kChargerStatus = "/sys/class/vn_power/power_event/connect_state";
// The result record and its directory; "cvt.data" is the record of an older format.
constexpr const char* kCvtDir = "/splash2/battery";
constexpr const char* kCvtOldFile = "/splash2/battery/cvt.data";
constexpr const char* kCvtFile = "/splash2/battery/cvtnew.data";
}  // namespace CvtNodes
