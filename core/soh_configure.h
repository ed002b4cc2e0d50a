// SOHConfigure: the daemon's JSON configuration and its persistent system parameters.
//
// Configuration: "quen.json" with its "version.txt" is looked for in the over-the-air
// directory and in the ODM or vendor directory of the image; valid candidates are ordered by
// version (highest first) and the first that parses is kept for the life of the process
// (loaded on first use, never reloaded). Getters return references to process-wide values that
// are read-only once loaded. The root is loaded under its own mutex; the derived getters are
// first used by the main thread during start-up.
//
// System parameters ("/log/soh/sys_para.dat", a SysPara record): closed schemes, the
// anti-swelling protect mark and the last limit each protector wrote. Loaded lazily by the
// first operation; every operation holds SysParaLock for its whole run, file I/O included;
// callable from any thread. The file is replaced atomically after each change.
#pragma once

#include <json/json.h>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace SohPaths {
constexpr const char* kOtaConfigDir = "/data/vendor/cota/para/power/QUENJSONCONFIG/";
constexpr const char* kOdmConfigDir = "/odm/etc/power/";
constexpr const char* kVendorConfigDir = "/vendor/etc/power/";
constexpr const char* kConfigFileName = "quen.json";
constexpr const char* kVersionFileName = "version.txt";
constexpr const char* kSysParaFile = "/log/soh/sys_para.dat";
}  // namespace SohPaths

class SOHConfigure {
public:
    using VerInfo = std::map<std::string, std::string>;
    // (path of "quen.json", its version information), in the order found.
    using ConfigInfo = std::vector<std::pair<std::string, VerInfo>>;

    // ---- configuration ----
    static void GetDefaultVerInfo(VerInfo& info);
    // Parses key=value lines; leaves `info` alone when the file cannot be read.
    static void GetFileVerInfo(VerInfo& info, const std::string& path);
    // 0 when valid; -1..-3 by the number of wrong tags; -1 for a missing or malformed version.
    static int CheckVerInfo(const VerInfo& info);
    static int GetConfigItem(const std::string& dir, bool isImage, ConfigInfo& candidates);
    static int GetConfigInfo(ConfigInfo& candidates);
    static void SortConfigInfo(ConfigInfo& candidates);
    static int ParseJsonFile(const std::string& path, Json::Value& root);

    // The loaded document; a null value when nothing could be loaded.
    static const Json::Value& GetRootConfigure();
    // "version" of the candidate in use, and its path ("" when nothing was loaded).
    static std::string GetConfigVersion();
    static std::string GetConfigPath();
    static const Json::Value& GetEstimatorsConfigure();
    // Member names of "Estimators" in ascending byte order.
    static const std::vector<std::string>& GetEstimators();
    // Union of all "Protectors" arrays.
    static const std::set<std::string>& GetProtectors();
    static std::vector<std::string> GetProtectorsOfEstimator(const std::string& name);

    // ---- system parameters ----
    static void InitPara();
    static int SavePara();
    static bool GetProtectMark();
    static int SetProtectMark(unsigned mark);
    static void CloseScheme(const std::string& name);
    static bool IsSchemeClosed(const std::string& name);
    static void RefLimitRecord(const std::string& name, const std::string& src,
                               const std::string& value);
    static int GetLimitRecord(const std::string& name, std::string& src, std::string& value);
    // Smart-charging flag: in memory only, starts at 0.
    static void SetSmartCharging(unsigned value);
    static unsigned GetSmartCharging();
};
