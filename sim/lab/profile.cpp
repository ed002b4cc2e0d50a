#include "sim/lab/profile.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>

#include "sim/model/model_params.h"

namespace fs = std::filesystem;

namespace sim {
namespace {

bool IsBareName(const std::string& s) {
    return !s.empty() && std::all_of(s.begin(), s.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-';
    });
}

}  // namespace

bool LoadProfile(const std::string& nameOrPath, const std::string& profileDir, UserProfile& out,
                 std::string& error) {
    const fs::path file = IsBareName(nameOrPath) ? fs::path(profileDir) / (nameOrPath + ".json")
                                                 : fs::path(nameOrPath);
    std::ifstream in(file);
    if (!in) {
        error = "profile " + file.string() + ": cannot read it";
        return false;
    }
    Json::CharReaderBuilder b;
    b["allowComments"] = true;
    b["rejectDupKeys"] = true;
    Json::Value v;
    std::string why;
    if (!Json::parseFromStream(b, in, &v, &why) || !v.isObject()) {
        error = "profile " + file.string() + ": not a JSON object " + why;
        return false;
    }
    for (const std::string& key : v.getMemberNames()) {
        if (key != "description" && key != "model") {
            error = "profile " + file.string() + ": unknown key \"" + key + "\"";
            return false;
        }
    }
    if (!v["model"].isObject() || !v["description"].isString()) {
        error =
            "profile " + file.string() + ": needs \"description\" (text) and \"model\" (object)";
        return false;
    }
    out.name = file.stem().string();
    out.description = v["description"].asString();
    out.model = v["model"];
    ModelParams check;
    if (!LoadModelParams(out.model, check, why)) {
        error = "profile " + file.string() + ": " + why;
        return false;
    }
    return true;
}

bool ApplyProfile(const Json::Value& scenarioModel, const UserProfile& profile, Json::Value& out,
                  std::string& error) {
    out = scenarioModel.isObject() ? scenarioModel : Json::Value(Json::objectValue);
    for (const std::string& key : profile.model.getMemberNames()) {
        out[key] = profile.model[key];
    }
    ModelParams check;
    if (!LoadModelParams(out, check, error)) {
        error = "profile " + profile.name + " on this scenario: " + error;
        return false;
    }
    return true;
}

std::vector<std::string> ListProfiles(const std::string& profileDir) {
    std::vector<std::string> names;
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(profileDir, ec)) {
        if (e.path().extension() == ".json") {
            names.push_back(e.path().stem().string());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace sim
