// Static probes of the device the daemon runs on: the fitted battery's name and whether it
// was replaced, whether a per-battery policy applies to this battery, country and board, the
// kernel's switch of battery-health subsystems, the UTC time as text, and the preparation of
// the daemon's working directory.
//
// Threads: every probe may be called from any thread. The battery name is read from the
// kernel once and then served from a process-wide 32-byte cache guarded by its own mutex
// (held for the whole first read); a failed read is not cached, so the next call retries. A
// battery swapped while the daemon runs keeps the old name until restart (IsBatteryChanged
// reports the swap). IsSohSubSysEnable serialises its node reads on a mutex of its own.
// Every other probe reads the platform afresh on each call and keeps no state.
#pragma once

#include <json/json.h>

#include <functional>
#include <string>
#include <vector>

// Battery brand name published by the fuel gauge (text, ends at its first non-alphanumeric).
constexpr const char* kBatteryBrandNode =
    "/sys/devices/virtual/vn_power/coul/coul_data/battery_brand_name";
// Non-zero (decimal text) once the battery was removed or replaced.
constexpr const char* kBatteryRemovedNode =
    "/sys/devices/platform/vorlan_batt_soh/quen_battery_removed";
// Comma-separated keys of the battery-health subsystems this board enables.
constexpr const char* kSohSubSysNode = "/sys/devices/platform/vorlan_batt_soh/quen_subsys";
// The daemon's working directory for persistent state.
constexpr const char* kSohDir = "/log/soh";

class SOHEnviroment {
public:
    // Size of the battery-name cache and of the buffers callers pass for the name.
    static constexpr int kBatteryNameSize = 32;

    // Appends the battery name (letters and digits only, at most 31) to `out`; true when the
    // name is not empty. False, and nothing appended, when the brand node cannot be read.
    static bool GetBatteryType(std::string& out);
    // Copies the NUL-terminated battery name into buf[0..len). True only when the name is
    // known, not empty and its length + 1 is strictly smaller than len, so a 32-byte buffer
    // refuses a 31-character name; buf is left alone when false is returned.
    static bool GetBatteryType(char* buf, int len);
    // True when the kernel reports the battery as removed or replaced; a failed read (e.g.
    // a missing node) counts as not changed.
    static bool IsBatteryChanged();

    // Each matcher takes a comma-separated list from a policy entry. An empty list, "all" or
    // "ALL" matches everything (other spellings are compared as items). Items and the device
    // value are compared without regard to case.
    // Model: an item matches when it equals the end of the battery name (suffix match).
    static bool MatchBatteryModel(const std::string& cfg);
    // Country: an item matches when it equals the whole "ro.product.locale.region".
    static bool MatchCountry(const std::string& cfg);
    // Product: an item matches when it equals the beginning of "ro.product.board".
    static bool MatchProduct(const std::string& cfg);

    // A policy entry's "Model", "Country" or "Product" value: absent (null) applies to all,
    // a string is passed to `pred`, any other type never applies.
    static bool MatchCfg(const Json::Value& v, std::function<bool(std::string)> pred);
    static bool MatchBatteryModelCfg(const Json::Value& v);
    static bool MatchCountryCfg(const Json::Value& v);
    static bool MatchProductCfg(const Json::Value& v);

    // The pieces of `s` between occurrences of `sep`, in order. Empty pieces (from two
    // separators in a row, or a separator at either end) are dropped, so "a,,b," gives
    // {"a", "b"} and "" or "," gives no piece: a stray comma in a list can never add an empty
    // item, which would otherwise match every battery name or board by suffix or prefix.
    static std::vector<std::string> SplitString(const std::string& s, char sep);

    // Formats the current UTC time (the clock seam, whole seconds) with strftime into
    // buf[0..len). False, logged, when the time cannot be read or does not fit.
    static bool GetGmtimeCstr(char* buf, int len, const char* fmt);

    // Makes sure the working directory exists: up to 100 attempts of CheckSohDir, 1 ms apart.
    static bool Prepare();
    // True when the working directory is a directory, or was missing and has just been
    // created (mode 0770, not recursively).
    static bool CheckSohDir();

    // True when `key` equals, exactly and in case, one of the comma-separated subsystem keys
    // the kernel enables. An empty key is never enabled.
    static bool IsSohSubSysEnable(const std::string& key);
};
