// Configuration loading: candidates, version rules, ordering, parsing and the getters.
#include <errno.h>
#include <limits.h>
#include <stdlib.h>

#include <algorithm>
#include <mutex>
#include <sstream>

#include "core/soh_configure.h"
#include "core/soh_file.h"
#include "core/soh_json.h"
#include "core/soh_log.h"

namespace {

// Neither file is legitimately larger; a runaway file is refused rather than read.
constexpr size_t kMaxVersionFileBytes = 64u << 10;
constexpr size_t kMaxConfigFileBytes = 8u << 20;

struct LoadedConfig {
    std::mutex lock;  // guards the first load
    bool loaded = false;
    Json::Value root;
    std::string version;
    std::string path;
};

LoadedConfig& Config() {
    static LoadedConfig* config = new LoadedConfig;  // never destroyed: detached threads may still
                                                     // use it while the process exits
    return *config;
}

// Takes the next dot-separated component from the front of `rest` as a number.
int TakeComponent(std::string& rest) {
    size_t dot = rest.find('.');
    std::string part = rest.substr(0, dot);
    rest = (dot == std::string::npos) ? std::string() : rest.substr(dot + 1);
    long long v = strtoll(part.c_str(), nullptr, 10);  // atoi's reading, without overflow
    return static_cast<int>(std::min<long long>(std::max<long long>(v, INT_MIN), INT_MAX));
}

bool VersionGreater(const std::string& a, const std::string& b) {
    std::string ra = a;
    std::string rb = b;
    for (int i = 0; i < 4; ++i) {
        int ca = TakeComponent(ra);
        int cb = TakeComponent(rb);
        if (ca != cb) {
            return ca > cb;
        }
    }
    return false;
}

std::string VersionOf(const SOHConfigure::VerInfo& info) {
    auto it = info.find("version");
    return it == info.end() ? std::string() : it->second;
}

}  // namespace

void SOHConfigure::GetDefaultVerInfo(VerInfo& info) {
    info["version"] = "1.10.20.100";
    info["type"] = "QUENJSONCONFIG";
    info["subtype"] = "generic";
    info["compatibleVersion"] = "1";
}

void SOHConfigure::GetFileVerInfo(VerInfo& info, const std::string& path) {
    std::string text;
    if (!SohFile::ReadAll(path, text, kMaxVersionFileBytes)) {
        return;
    }
    info.clear();
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        size_t eol = line.find_first_of("\r\n");
        if (eol != std::string::npos) {
            line.erase(eol);
        }
        size_t eq = line.rfind('=');
        if (eq == std::string::npos || eq == 0) {
            continue;
        }
        info[line.substr(0, eq)] = line.substr(eq + 1);
    }
}

int SOHConfigure::CheckVerInfo(const VerInfo& info) {
    static const std::pair<const char*, const char*> kTags[] = {
        {"compatibleVersion", "1"}, {"type", "QUENJSONCONFIG"}, {"subtype", "generic"}};
    int result = 0;
    for (const auto& tag : kTags) {
        auto it = info.find(tag.first);
        std::string value = it == info.end() ? std::string() : it->second;
        if (value != tag.second) {
            SOH_LOGE("tag %s value %s is not expected\n", tag.first, value.c_str());
            result -= 1;
        }
    }
    if (result != 0) {
        return result;
    }
    auto it = info.find("version");
    if (it == info.end()) {
        SOH_LOGE("version is not configure\n");
        return -1;
    }
    const std::string& version = it->second;
    if (version.empty() || std::count(version.begin(), version.end(), '.') != 3) {
        return -1;
    }
    bool digitsAndDots = std::all_of(version.begin(), version.end(),
                                     [](char c) { return (c >= '0' && c <= '9') || c == '.'; });
    return digitsAndDots ? 0 : -1;
}

int SOHConfigure::GetConfigItem(const std::string& dir, bool isImage, ConfigInfo& candidates) {
    std::string json = dir + SohPaths::kConfigFileName;
    if (!SohFile::Exists(json)) {
        SOH_LOGE("json file %s is not exist\n", json.c_str());
        return -1;
    }
    std::string ver = dir + SohPaths::kVersionFileName;
    VerInfo info;
    if (!SohFile::Exists(ver)) {
        if (!isImage) {
            SOH_LOGE("version file %s is not exist\n", ver.c_str());
            return -1;
        }
        GetDefaultVerInfo(info);
    } else {
        GetFileVerInfo(info, ver);
    }
    int rc = CheckVerInfo(info);
    if (rc != 0) {
        return rc;
    }
    SOH_LOGI("json file is %s and version is %s\n", json.c_str(), VersionOf(info).c_str());
    candidates.emplace_back(json, info);
    return 0;
}

int SOHConfigure::GetConfigInfo(ConfigInfo& candidates) {
    if (GetConfigItem(SohPaths::kOtaConfigDir, false, candidates) != 0) {
        SOH_LOGE("json file %s parse fail\n", SohPaths::kOtaConfigDir);
    }
    // The result is that of the image directories alone: a valid over-the-air candidate
    // without a usable image configuration loads nothing.
    if (GetConfigItem(SohPaths::kOdmConfigDir, true, candidates) == 0) {
        return 0;
    }
    return GetConfigItem(SohPaths::kVendorConfigDir, true, candidates);
}

void SOHConfigure::SortConfigInfo(ConfigInfo& candidates) {
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const ConfigInfo::value_type& a, const ConfigInfo::value_type& b) {
                         return VersionGreater(VersionOf(a.second), VersionOf(b.second));
                     });
}

int SOHConfigure::ParseJsonFile(const std::string& path, Json::Value& root) {
    std::string text;
    if (!SohFile::ReadAll(path, text, kMaxConfigFileBytes)) {
        SOH_LOGE("json file %s open fail\n", path.c_str());
        return -1;
    }
    Json::Value value;
    if (!SohJson::Parse(text, value, true)) {
        SOH_LOGE("parse configure file %s failed\n", path.c_str());
        return -1;
    }
    if (value.isNull()) {
        SOH_LOGE("soh configure of %s is empty\n", path.c_str());
        return -1;
    }
    root.swap(value);
    SOH_LOGE("parse json file %s success\n", path.c_str());
    return 0;
}

const Json::Value& SOHConfigure::GetRootConfigure() {
    LoadedConfig& config = Config();
    std::lock_guard<std::mutex> lock(config.lock);
    if (!config.loaded) {
        config.loaded = true;
        ConfigInfo candidates;
        if (GetConfigInfo(candidates) == 0) {
            if (candidates.size() >= 2) {
                SortConfigInfo(candidates);
            }
            for (const auto& candidate : candidates) {
                if (ParseJsonFile(candidate.first, config.root) == 0) {
                    config.version = VersionOf(candidate.second);
                    config.path = candidate.first;
                    break;
                }
            }
        }
    }
    return config.root;
}

std::string SOHConfigure::GetConfigVersion() {
    GetRootConfigure();
    std::lock_guard<std::mutex> lock(Config().lock);
    return Config().version;
}

std::string SOHConfigure::GetConfigPath() {
    GetRootConfigure();
    std::lock_guard<std::mutex> lock(Config().lock);
    return Config().path;
}

const Json::Value& SOHConfigure::GetEstimatorsConfigure() {
    static const Json::Value* estimators = new Json::Value([] {
        const Json::Value& root = GetRootConfigure();
        if (!root.isObject() || !root.isMember("Estimators")) {
            SOH_LOGE("root configure not have key(Estimators)\n");
            return Json::Value();
        }
        return root["Estimators"];
    }());  // never destroyed: detached threads may still use it while the process exits
    return *estimators;
}

const std::vector<std::string>& SOHConfigure::GetEstimators() {
    static const std::vector<std::string>* names = new std::vector<std::string>([] {
        const Json::Value& estimators = GetEstimatorsConfigure();
        std::vector<std::string> out;
        if (estimators.isObject()) {
            out = estimators.getMemberNames();
            std::sort(out.begin(), out.end());
        }
        if (out.empty()) {
            SOH_LOGE("Can't find any estimator member\n");
        }
        return out;
    }());  // never destroyed: detached threads may still use it while the process exits
    return *names;
}

std::vector<std::string> SOHConfigure::GetProtectorsOfEstimator(const std::string& name) {
    std::vector<std::string> out;
    const Json::Value& estimators = GetEstimatorsConfigure();
    if (!estimators.isObject() || !estimators[name].isObject()) {
        return out;
    }
    const Json::Value& list = estimators[name]["Protectors"];
    if (!list.isArray()) {
        return out;
    }
    for (const Json::Value& item : list) {
        if (item.isString()) {  // anything else cannot name a protector
            out.push_back(item.asString());
        }
    }
    return out;
}

const std::set<std::string>& SOHConfigure::GetProtectors() {
    static const std::set<std::string>* protectors = new std::set<std::string>([] {
        std::set<std::string> out;
        for (const std::string& name : GetEstimators()) {
            for (std::string& p : GetProtectorsOfEstimator(name)) {
                out.insert(std::move(p));
            }
        }
        return out;
    }());  // never destroyed: detached threads may still use it while the process exits
    return *protectors;
}
