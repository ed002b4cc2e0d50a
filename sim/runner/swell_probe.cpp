#include "sim/runner/swell_probe.h"

#include <exception>
#include <fstream>

namespace sim {
namespace {

bool ParseFile(const std::string& path, Json::Value& out) {
    std::ifstream in(path);
    if (!in) {
        return false;
    }
    Json::CharReaderBuilder builder;
    builder["allowComments"] = true;
    std::string errors;
    try {  // the parser throws for some inputs (nesting beyond its stack limit)
        return Json::parseFromStream(builder, in, &out, &errors) && out.isObject();
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace

bool SwellProbe::Init(const std::string& root, std::string& error) {
    Json::Value config;
    const std::string file = root + "/odm/etc/power/quen.json";
    if (!ParseFile(file, config)) {
        error = file + " cannot be read";
        return false;
    }
    const Json::Value& estimators = config["Estimators"];
    const Json::Value& asw =
        estimators.isObject() ? estimators["ASW"] : Json::Value::nullSingleton();
    const Json::Value& battery = asw.isObject() ? asw["Battery"][0] : Json::Value();
    if (!battery.isObject() || !battery["Name"].isString() || !battery["SwellTabe"].isString()) {
        error = "no anti-swelling battery configured";
        return false;
    }
    table_ = asw[battery["SwellTabe"].asString()]["Table"];
    if (!table_.isArray()) {
        error = "no swell table configured";
        return false;
    }
    dataFile_ = root + "/log/soh/asw_" + battery["Name"].asString() + ".dat";
    return true;
}

double SwellProbe::Weigh(const Json::Value& swellTimes) const {
    double swell = 0;
    if (!swellTimes.isArray()) {
        return 0;
    }
    for (Json::ArrayIndex r = 0; r < swellTimes.size() && r < table_.size(); ++r) {
        const Json::Value& row = swellTimes[r];
        for (Json::ArrayIndex c = 0; row.isArray() && c < row.size() && c < table_[r].size(); ++c) {
            if (row[c].isNumeric() && table_[r][c].isNumeric()) {
                swell += row[c].asDouble() * table_[r][c].asDouble() / 86400.0;
            }
        }
    }
    return swell;
}

bool SwellProbe::Read(SwellEstimate& out) const {
    Json::Value data;
    if (dataFile_.empty() || !ParseFile(dataFile_, data)) {
        return false;
    }
    out = SwellEstimate{};
    const Json::Value& addup = data["Addup"];
    if (addup.isObject()) {
        out.total = Weigh(addup["SwellTimes"]);
        if (addup["OldAswell"].isNumeric()) {
            out.total += addup["OldAswell"].asDouble();
        }
    }
    const Json::Value& days = data["Day"];
    if (days.isArray() && days.size() >= 8) {
        for (Json::ArrayIndex i = days.size() - 8; i + 1 < days.size(); ++i) {
            out.week += Weigh(days[i]["SwellTimes"]);
        }
    }
    out.scene = data["Scene"].isUInt() ? data["Scene"].asUInt() : 0;
    return true;
}

}  // namespace sim
