// Shared helpers of the anti-swelling estimator: its clock, its device reads, the debug stub
// that can replace both, and the device paths it reads.
//
// ASW clock: Asw::Now() is the wall clock (through the clock seam) while the time speed is 1.
// With a speed N > 1 it runs N times faster in whole-second steps from the wall instant at
// which the speed last changed: base + N * s seconds, s = whole wall seconds since base.
//
// Debug stub: a process-wide map from a name (a device path, or a debug key such as
// kAswellAddKey) to a number. While stub mode is on, ReadDeviceStrToT reads no device and
// answers from the map (0 for a path it does not hold). The map is consulted for
// kAswellAddKey whether or not stub mode is on.
//
// Threads: the stub state (map, stub mode, time speed and its base) is guarded by one
// internal mutex, so the control-service thread may store a debug value while the ASW thread
// reads; every function here is callable from any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace AswNodes {
constexpr const char* kBatteryCycleCount = "/sys/class/power_supply/Battery/cycle_count";
constexpr const char* kBatteryVoltageNow = "/sys/class/power_supply/Battery/voltage_now";  // uV
constexpr const char* kBatteryTemp = "/sys/class/power_supply/Battery/temp";  // 0.1 degC
constexpr const char* kChargerType = "/sys/class/vn_power/charger/charge_data/chargerType";
// Charger connection state (non-zero: connected), read for "smart_charging".
constexpr const char* kConnectState = "/sys/class/vn_power/power_event/connect_state";
// Scene events for the kernel: "asw N" is written when scene event N comes into force.
constexpr const char* kDmdReport = "/sys/devices/platform/vorlan_batt_soh/quen_dmd_report";
// Debug stub (both must exist at the first UpdateStub for the stub to work): the time speed
// (decimal) and "STUB CHARGER_TYPE VOLTAGE_UV TEMP_DECI_C" (four decimal integers).
constexpr const char* kTimeSpeed = "/sys/devices/platform/vorlan_batt_soh/asw/asw_time_speed";
constexpr const char* kStubData = "/sys/devices/platform/vorlan_batt_soh/asw/asw_data";
// The legacy swell log (416-byte record) read once when no data file exists yet.
constexpr const char* kOldLog = "/log/charge_monitor/batteryMonitor.log";
// Data files: kDataDir + kDataPrefix + battery name + kDataSuffix.
constexpr const char* kDataDir = "/log/soh/";
constexpr const char* kDataPrefix = "asw_";
constexpr const char* kDataSuffix = ".dat";
// Modem signal properties: kSimPropPrefix + slot (0..2) + kSimPropSuffix; "-1" when no SIM.
constexpr const char* kSimPropPrefix = "odm.ril.vn_modem";
constexpr const char* kSimPropSuffix = ".rssi";
}  // namespace AswNodes

namespace Asw {

// Result of ASW operations that fail: all ones.
constexpr uint32_t kFail = 4294967295u;
// Debug key: a swell added to every "Aswell" while it is in the stub map.
constexpr const char* kAswellAddKey = "dbg_asw_aswell_add";

// An instant of the ASW clock, microseconds since the epoch.
using TimePoint = std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>;

TimePoint Now();
// Now() and GetTimeSpeed() read together, as one state of the clock.
TimePoint Now(unsigned& speed);
// Whole seconds since the epoch of an ASW instant (truncated toward zero).
int64_t ToSeconds(TimePoint t);

// Sets the time speed (0 is taken as 1). A change restarts the accelerated time at the
// current wall instant. Returns true when the speed changed.
bool SetTimeSpeed(unsigned speed);
// The current time speed, 1 by default.
unsigned GetTimeSpeed();

// Switches stub mode (device reads answered from the stub map) on or off.
void SetStubMode(bool on);
bool IsStubMode();
// Stores `value` in the stub map under `name`.
void SetValue(const std::string& name, double value);
// The stub value under `name`; false when the map has none.
bool GetStubValue(const std::string& name, double& value);
// Empties the stub map, switches stub mode off and resets the speed to 1 (for tests and a
// fresh start).
void ResetStub();

// Reads one number from a device node through DeviceReader. A failed read yields the type's
// maximum (4294967295, 2147483647, 3.4028235e38). In stub mode it answers from the stub map.
// Instantiated for unsigned, int and float.
template <typename T>
T ReadDeviceStrToT(const std::string& path);

// True when both instants (seconds since the epoch) fall on the same local calendar day.
bool IsSameDay(int64_t t1, int64_t t2);
bool IsFileExist(const std::string& path);
// True when any of the three modem slots reports a signal (property value other than -1).
// A failed property read answers false at once.
bool IsSimPlugIn();
// Test hook, called once per ASW pass: enabled only when both stub nodes exist at the first
// call; then takes the time speed and the stub data (mode, charger type, voltage, temperature)
// from the nodes into the stub. Does nothing when disabled.
void UpdateStub();
// Writes "asw N" to the kernel's scene-event node; nothing for n == 0. 0, or -1 (logged).
int SendDmdToKernel(unsigned n);
// The data file of the battery `name`.
std::string GetDataFile(const std::string& name);

extern template unsigned ReadDeviceStrToT<unsigned>(const std::string& path);
extern template int ReadDeviceStrToT<int>(const std::string& path);
extern template float ReadDeviceStrToT<float>(const std::string& path);

}  // namespace Asw
