#include "sim/runner/scenario.h"

#include <stdlib.h>
#include <sys/mount.h>
#include <time.h>

#include <cmath>
#include <exception>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

namespace sim {

namespace fs = std::filesystem;
namespace {

bool Fail(const std::string& file, const std::string& what, std::string& error) {
    error = file + ": " + what;
    return false;
}

bool Number(const Json::Value& root, const char* key, double lo, double hi, double& out,
            const std::string& file, std::string& error) {
    const Json::Value& v = root[key];
    if (v.isNull()) {
        return true;
    }
    if (!v.isNumeric() || !std::isfinite(v.asDouble()) || v.asDouble() < lo || v.asDouble() > hi) {
        std::ostringstream range;
        range << "\"" << key << "\" must be a number in [" << lo << ", " << hi << "]";
        return Fail(file, range.str(), error);
    }
    out = v.asDouble();
    return true;
}

bool StringMap(const Json::Value& root, const char* key, std::map<std::string, std::string>& out,
               const std::string& file, std::string& error) {
    const Json::Value& v = root[key];
    if (v.isNull()) {
        return true;
    }
    if (!v.isObject()) {
        return Fail(file, std::string("\"") + key + "\" must be an object of strings", error);
    }
    for (const std::string& name : v.getMemberNames()) {
        if (!v[name].isString() || name.empty() || name.find("..") != std::string::npos ||
            name[0] == '/') {
            return Fail(
                file,
                std::string("\"") + key + "\": \"" + name + "\" is not a name with a text value",
                error);
        }
        out[name] = v[name].asString();
    }
    return true;
}

// "YYYY-MM-DD HH:MM:SS" in the scenario's time zone.
bool ParseStart(const std::string& text, const std::string& tz, int64_t& out) {
    struct tm tm {};
    const char* end = strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &tm);
    if (end == nullptr || *end != '\0') {
        return false;
    }
    const char* old = getenv("TZ");
    std::string saved = old != nullptr ? old : "";
    setenv("TZ", tz.c_str(), 1);
    tzset();
    tm.tm_isdst = -1;
    time_t t = mktime(&tm);
    if (old != nullptr) {
        setenv("TZ", saved.c_str(), 1);
    } else {
        unsetenv("TZ");
    }
    tzset();
    if (t == static_cast<time_t>(-1) || t < 1546272000) {  // the daemon waits for a set clock
        return false;
    }
    out = t;
    return true;
}

bool WriteFile(const fs::path& path, const std::string& content, std::string& error) {
    std::error_code ec;
    fs::create_directories(path.parent_path(), ec);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    if (!out) {
        error = "cannot write " + path.string();
        return false;
    }
    return true;
}

}  // namespace

bool LoadScenario(const std::string& path, Scenario& out, std::string& error) {
    out = Scenario{};
    out.file = path;
    std::ifstream in(path);
    if (!in) {
        return Fail(path, "cannot be read", error);
    }
    Json::CharReaderBuilder builder;
    builder["allowComments"] = true;
    builder["rejectDupKeys"] = true;
    Json::Value root;
    std::string parseErrors;
    bool parsed = false;
    try {  // the parser throws for some inputs (nesting beyond its stack limit)
        parsed = Json::parseFromStream(builder, in, &root, &parseErrors);
    } catch (const std::exception& e) {
        parseErrors = e.what();
    }
    if (!parsed) {
        return Fail(path, "not valid JSON: " + parseErrors, error);
    }
    if (!root.isObject()) {
        return Fail(path, "must hold a JSON object", error);
    }
    static const std::set<std::string> kKeys = {"name",  "device",        "start", "timezone",
                                                "days",  "speed",         "model", "properties",
                                                "nodes", "sample_minutes"};
    for (const std::string& key : root.getMemberNames()) {
        if (kKeys.count(key) == 0) {
            return Fail(path, "unknown key \"" + key + "\"", error);
        }
    }
    out.name = fs::path(path).stem().string();
    if (!root["name"].isNull()) {
        if (!root["name"].isString() || root["name"].asString().empty() ||
            root["name"].asString().find_first_not_of(
                "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_.-") !=
                std::string::npos) {
            return Fail(path, "\"name\" must be letters, digits, '_', '.' or '-'", error);
        }
        out.name = root["name"].asString();
    }
    if (!root["device"].isString()) {
        return Fail(path, "\"device\" (the device tree to start from) is missing", error);
    }
    fs::path device = fs::path(path).parent_path() / root["device"].asString();
    std::error_code ec;
    if (!fs::is_directory(device / "sys", ec) || !fs::is_directory(device / "odm", ec)) {
        return Fail(path,
                    "\"device\": " + device.string() + " is not a device tree (no sys/ or odm/)",
                    error);
    }
    out.deviceDir = fs::weakly_canonical(device, ec).string();
    if (!root["timezone"].isNull()) {
        if (!root["timezone"].isString() || root["timezone"].asString().empty()) {
            return Fail(path, "\"timezone\" must be a TZ value such as \"CST-8\"", error);
        }
        out.timezone = root["timezone"].asString();
    }
    std::string start = "2026-03-01 08:00:00";
    if (!root["start"].isNull()) {
        if (!root["start"].isString()) {
            return Fail(path, "\"start\" must be \"YYYY-MM-DD HH:MM:SS\"", error);
        }
        start = root["start"].asString();
    }
    if (!ParseStart(start, out.timezone, out.startEpoch)) {
        return Fail(path, "\"start\" must be \"YYYY-MM-DD HH:MM:SS\", after 2019-01-01", error);
    }
    if (root["days"].isNull()) {
        return Fail(path, "\"days\" (how long to simulate) is missing", error);
    }
    double minutes = out.sampleSeconds / 60;
    if (!Number(root, "days", 0.001, 3650, out.days, path, error) ||
        !Number(root, "speed", 1, 1e6, out.speed, path, error) ||
        !Number(root, "sample_minutes", 1, 1440, minutes, path, error)) {
        return false;
    }
    out.sampleSeconds = minutes * 60;
    if (!root["model"].isNull() && !root["model"].isObject()) {
        return Fail(path, "\"model\" must be an object", error);
    }
    out.model = root["model"];
    return StringMap(root, "properties", out.properties, path, error) &&
           StringMap(root, "nodes", out.nodes, path, error);
}

bool PrepareRoot(const Scenario& sc, const std::string& rootDir, std::string& error) {
    const fs::path root(rootDir);
    std::error_code ec;
    umount2((root / "sys").c_str(), MNT_DETACH);  // left mounted by a run that was killed
    fs::remove_all(root, ec);
    if (ec) {
        error = "cannot clear " + root.string() + ": " + ec.message();
        return false;
    }
    fs::create_directories(root, ec);
    fs::copy(sc.deviceDir, root, fs::copy_options::recursive, ec);
    if (ec) {
        error = "cannot copy " + sc.deviceDir + ": " + ec.message();
        return false;
    }
    for (const auto& kv : sc.properties) {
        if (!WriteFile(root / "properties" / kv.first, kv.second, error)) {
            return false;
        }
    }
    for (const auto& kv : sc.nodes) {
        if (!WriteFile(root / "sys" / kv.first, kv.second, error)) {
            return false;
        }
    }
    return true;
}

}  // namespace sim
