#include "core/soh_enviroment.h"

#include <bms_interface.h>
#include <ctype.h>
#include <cutils/properties.h>
#include <errno.h>
#include <securec.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include <mutex>

#include "core/device_stream.h"
#include "core/soh_file.h"
#include "core/soh_log.h"
#include "platform/soh_clock.h"

namespace {

constexpr int kPrepareAttempts = 100;
constexpr unsigned kPrepareRetryUs = 1000;
constexpr mode_t kSohDirMode = 0770;
constexpr unsigned kSubSysTextSize = 128;
constexpr unsigned kBoardNameSize = 64;

// The battery-name cache: filled once by the first successful read of the brand node.
std::mutex g_batteryNameLock;                              // guards the two below
char g_batteryName[SOHEnviroment::kBatteryNameSize] = {};  // NUL-terminated, alphanumeric
bool g_batteryNameRead = false;

std::mutex g_subSysLock;  // serialises reads of the subsystem switch node

bool IsMatchAll(const std::string& cfg) {
    return cfg.empty() || cfg == "all" || cfg == "ALL";
}

std::string ToUpper(std::string s) {
    for (char& c : s) {
        c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    }
    return s;
}

// True when one upper-cased item of `cfg` matches `value` (already upper case) by `matches`.
template <typename Pred>
bool AnyItemMatches(const std::string& cfg, const std::string& value, Pred matches) {
    for (const std::string& piece : SOHEnviroment::SplitString(cfg, ',')) {
        if (matches(ToUpper(piece), value)) {
            return true;
        }
    }
    return false;
}

}  // namespace

bool SOHEnviroment::GetBatteryType(std::string& out) {
    std::lock_guard<std::mutex> lock(g_batteryNameLock);
    if (!g_batteryNameRead) {
        DeviceReader reader(kBatteryBrandNode);
        if (!reader.IsOpen()) {
            SOH_LOGE("Open file(%s) failed\n", kBatteryBrandNode);
            return false;
        }
        // Reading the whole buffer keeps at most 31 bytes: the reader ends it with a NUL.
        memset_s(g_batteryName, sizeof(g_batteryName), 0, sizeof(g_batteryName));
        if (reader.ReadRawStr(g_batteryName, sizeof(g_batteryName)) != 0) {
            return false;
        }
        // The name ends at its first character that is neither a letter nor a digit (line
        // end, blank, dash...).
        for (char& c : g_batteryName) {
            if (!isalnum(static_cast<unsigned char>(c))) {
                c = '\0';
            }
        }
        g_batteryNameRead = true;
    }
    out.append(g_batteryName);
    return g_batteryName[0] != '\0';
}

bool SOHEnviroment::GetBatteryType(char* buf, int len) {
    std::string name;
    if (buf == nullptr || !GetBatteryType(name)) {
        return false;
    }
    if (static_cast<long long>(name.size()) + 1 >= len) {
        return false;
    }
    if (strcpy_s(buf, static_cast<size_t>(len), name.c_str()) != EOK) {
        SOH_LOGE("%s strcpy_s error\n", "GetBatteryType");
    }
    buf[name.size()] = '\0';
    return true;
}

bool SOHEnviroment::IsBatteryChanged() {
    unsigned removed = 0;
    return DeviceReader(kBatteryRemovedNode).ReadStrToT(removed) == 0 && removed != 0;
}

bool SOHEnviroment::MatchBatteryModel(const std::string& cfg) {
    if (IsMatchAll(cfg)) {
        SOH_LOGI("battery policy match all model\n");
        return true;
    }
    char name[kBatteryNameSize] = {};
    if (!GetBatteryType(name, sizeof(name))) {
        SOH_LOGE("read battery name error\n");
        return false;
    }
    std::string value = ToUpper(name);
    bool match = AnyItemMatches(cfg, value, [](const std::string& item, const std::string& v) {
        return item.size() <= v.size() && v.compare(v.size() - item.size(), item.size(), item) == 0;
    });
    if (!match) {
        SOH_LOGI("battery model mismatch %s:%s\n", value.c_str(), cfg.c_str());
    }
    return match;
}

bool SOHEnviroment::MatchCountry(const std::string& cfg) {
    if (IsMatchAll(cfg)) {
        SOH_LOGI("battery policy match all country\n");
        return true;
    }
    char region[PROPERTY_VALUE_MAX] = {};
    if (property_get("ro.product.locale.region", region, "") < 0) {
        SOH_LOGE("get ro.product.locale.region failed in %s\n", "MatchCountry");
        return false;
    }
    std::string value = ToUpper(region);
    bool match = AnyItemMatches(
        cfg, value, [](const std::string& item, const std::string& v) { return item == v; });
    if (!match) {
        SOH_LOGI("battery country mismatch %s:%s\n", value.c_str(), cfg.c_str());
    }
    return match;
}

bool SOHEnviroment::MatchProduct(const std::string& cfg) {
    if (IsMatchAll(cfg)) {
        SOH_LOGI("battery policy match all product\n");
        return true;
    }
    char board[kBoardNameSize];
    memset_s(board, sizeof(board), 0, sizeof(board));
    if (BmsPropertyGetValue("ro.product.board", board, sizeof(board)) != 0) {
        return false;
    }
    std::string value = ToUpper(board);
    bool match = AnyItemMatches(cfg, value, [](const std::string& item, const std::string& v) {
        return item.size() <= v.size() && v.compare(0, item.size(), item) == 0;
    });
    if (!match) {
        SOH_LOGI("battery policy of product mismatch %s:%s\n", value.c_str(), cfg.c_str());
    }
    return match;
}

bool SOHEnviroment::MatchCfg(const Json::Value& v, std::function<bool(std::string)> pred) {
    if (v.isNull()) {
        SOH_LOGI("battery policy configure is applied to all model\n");
        return true;
    }
    if (v.isString()) {
        return pred(v.asString());
    }
    SOH_LOGE("battery policy matchable type error\n");
    return false;
}

bool SOHEnviroment::MatchBatteryModelCfg(const Json::Value& v) {
    return MatchCfg(v, MatchBatteryModel);
}

bool SOHEnviroment::MatchCountryCfg(const Json::Value& v) {
    return MatchCfg(v, MatchCountry);
}

bool SOHEnviroment::MatchProductCfg(const Json::Value& v) {
    return MatchCfg(v, MatchProduct);
}

std::vector<std::string> SOHEnviroment::SplitString(const std::string& s, char sep) {
    std::vector<std::string> pieces;
    size_t start = 0;
    while (start <= s.size()) {
        size_t end = s.find(sep, start);
        if (end == std::string::npos) {
            end = s.size();
        }
        if (end > start) {
            pieces.push_back(s.substr(start, end - start));
        }
        start = end + 1;
    }
    return pieces;
}

bool SOHEnviroment::GetGmtimeCstr(char* buf, int len, const char* fmt) {
    time_t now = SohClock::Time(nullptr);
    if (now == static_cast<time_t>(-1)) {
        SOH_LOGE("read time failed in %s\n", "GetGmtime");
        return false;
    }
    struct tm utc {};
    if (gmtime_r(&now, &utc) == nullptr) {
        SOH_LOGE("get UTC time failed in %s\n", "GetGmtime");
        return false;
    }
    if (buf == nullptr || len <= 0 || fmt == nullptr ||
        strftime(buf, static_cast<size_t>(len), fmt, &utc) == 0) {
        SOH_LOGE("get UTC time to cstr len:%d with format:%s failed\n", len,
                 fmt != nullptr ? fmt : "");
        return false;
    }
    return true;
}

bool SOHEnviroment::Prepare() {
    for (int attempt = 0; attempt < kPrepareAttempts; ++attempt) {
        if (CheckSohDir()) {
            return true;
        }
        SohClock::Usleep(kPrepareRetryUs);
    }
    return false;
}

bool SOHEnviroment::CheckSohDir() {
    struct stat st {};
    if (SohFile::Stat(kSohDir, st) == 0) {
        return S_ISDIR(st.st_mode);
    }
    int err = errno;
    SOH_LOGE("open dir %s failed: %s\n", kSohDir, strerror(err));
    if (err != ENOTDIR && err != ENOENT) {
        return false;
    }
    if (SohFile::MakeDir(kSohDir, kSohDirMode) != 0) {
        SOH_LOGE("create dir %s failed: %s\n", kSohDir, strerror(errno));
        return false;
    }
    return true;
}

bool SOHEnviroment::IsSohSubSysEnable(const std::string& key) {
    if (key.empty()) {
        return false;
    }
    std::lock_guard<std::mutex> lock(g_subSysLock);
    char text[kSubSysTextSize];
    memset_s(text, sizeof(text), 0, sizeof(text));
    if (DeviceReader(kSohSubSysNode).ReadRawStr(text, sizeof(text)) != 0) {
        SOH_LOGE("read battery soh subsys node failed\n");
        return false;
    }
    // The node's line end is not part of its last key.
    text[strcspn(text, "\r\n")] = '\0';
    for (const std::string& piece : SplitString(text, ',')) {
        if (piece == key) {
            return true;
        }
    }
    SOH_LOGE("battery soh %s subsys driver is not in %s\n", key.c_str(), text);
    return false;
}
