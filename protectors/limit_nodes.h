// The kernel nodes that the protectors write, in one table. These are device paths: the
// device streams map them under the root when they open them, and log messages show them as
// they stand here.
//
// Each limit node takes one line without a newline, "quen TYPE VALUE" (the first word names
// this daemon as the requester, the second selects the charger type), except where a
// protector's header says otherwise.
#pragma once

namespace LimitNodes {

// Charging current of the direct (switched-capacitor) charger, as a ratio of the normal current.
inline constexpr const char kIchgRatio[] = "/sys/class/vn_power/interface/ichg_ratio";
// Charging current of the buck charger.
inline constexpr const char kIchgLimit[] = "/sys/class/vn_power/interface/ichg_limit";
// Decrease of the charge termination voltage, per charger type.
inline constexpr const char kVtermDec[] = "/sys/class/vn_power/interface/vterm_dec";
// Decrease of the fuel gauge's voltage; plain decimal text, no prefix.
inline constexpr const char kBaspCoulVdec[] =
    "/sys/devices/platform/vorlan_batt_soh/basp/basp_coul_vdec";
// SOC control: "quen TYPE" selects the strategy, "quen ENABLE LOW HIGH" the bounds.
inline constexpr const char kSocStrategy[] = "/sys/class/vn_power/soc_control/strategy";
inline constexpr const char kSocControl[] = "/sys/class/vn_power/soc_control/control";
// Battery status level for the short-circuit driver; plain decimal text, no prefix.
inline constexpr const char kIscdStatus[] =
    "/sys/devices/platform/vorlan_batt_soh/iscd/iscd_status";
// Tells the short-circuit driver that limiting is supported: the two bytes '1', '\0'.
inline constexpr const char kIscdLimitSupport[] =
    "/sys/devices/platform/vorlan_batt_soh/iscd/iscd_limit_support";

}  // namespace LimitNodes
