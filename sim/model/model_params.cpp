// Loading and checking of the simulated phone's parameters.
#include "sim/model/model_params.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <map>
#include <sstream>

namespace sim {

namespace {

const char* const kBuckTypes[] = {"dcp", "fcp", "pd", "wl"};
const char* const kDirectTypes[] = {"lvc", "sc", "wl_sc"};

std::string Num(double v) {
    std::ostringstream s;
    s << v;
    return s.str();
}

// One key of the object: how to read it into the parameters.
using Reader = std::function<bool(const Json::Value&, ModelParams&, std::string&)>;

// A number within [lo, hi] (hi excluded when `openHigh`).
Reader Number(double ModelParams::*field, double lo, double hi, bool openHigh = false) {
    return [=](const Json::Value& v, ModelParams& p, std::string& why) {
        if (!v.isNumeric() || v.isBool()) {
            why = "must be a number";
            return false;
        }
        const double x = v.asDouble();
        if (!std::isfinite(x) || x < lo || (openHigh ? x >= hi : x > hi)) {
            why = "is " + Num(x) + ", must be within [" + Num(lo) + ", " + Num(hi) +
                  (openHigh ? ")" : "]");
            return false;
        }
        p.*field = x;
        return true;
    };
}

// An integer within [lo, hi].
template <typename T>
Reader Integer(T ModelParams::*field, int64_t lo, int64_t hi) {
    return [=](const Json::Value& v, ModelParams& p, std::string& why) {
        if (!v.isIntegral() || v.isBool()) {
            why = "must be an integer";
            return false;
        }
        const int64_t x = v.isUInt64() ? static_cast<int64_t>(std::min<uint64_t>(
                                             v.asUInt64(), static_cast<uint64_t>(INT64_MAX)))
                                       : v.asInt64();
        if (x < lo || x > hi) {
            why = "is " + std::to_string(x) + ", must be within [" + std::to_string(lo) + ", " +
                  std::to_string(hi) + "]";
            return false;
        }
        p.*field = static_cast<T>(x);
        return true;
    };
}

Reader Text(std::string ModelParams::*field, std::function<bool(const std::string&)> ok,
            const char* expected) {
    return [=](const Json::Value& v, ModelParams& p, std::string& why) {
        if (!v.isString()) {
            why = "must be a string";
            return false;
        }
        if (!ok(v.asString())) {
            why = "is \"" + v.asString() + "\", must be " + expected;
            return false;
        }
        p.*field = v.asString();
        return true;
    };
}

const std::map<std::string, Reader>& Readers() {
    using P = ModelParams;
    static const std::map<std::string, Reader> readers = {
        {"design_capacity_mah", Number(&P::design_capacity_mah, 500, 20000)},
        {"termination_voltage_mv", Integer(&P::termination_voltage_mv, 4000, 4450)},
        {"resistance_mohm", Number(&P::resistance_mohm, 5, 1000)},
        {"termination_current_ma", Number(&P::termination_current_ma, 10, 2000)},
        {"recharge_mv", Integer(&P::recharge_mv, 10, 500)},
        {"start_cycles", Number(&P::start_cycles, 0, 5000)},
        {"start_age_days", Number(&P::start_age_days, 0, 3650)},
        {"start_soc_pct", Number(&P::start_soc_pct, 0, 100)},
        {"ambient_c", Number(&P::ambient_c, -20, 60)},
        {"thermal_resistance_k_per_w", Number(&P::thermal_resistance_k_per_w, 0.5, 100)},
        {"thermal_time_constant_s", Number(&P::thermal_time_constant_s, 60, 36000)},
        {"adapter",
         Text(&P::adapter, IsChargerTypeWord, "one of dcp, fcp, pd, wl, lvc, sc, wl_sc")},
        {"charger_type_code", Integer(&P::charger_type_code, 0, 100)},
        {"charge_current_max_ma", Number(&P::charge_current_max_ma, 100, 20000)},
        {"buck_current_max_ma", Number(&P::buck_current_max_ma, 100, 20000)},
        {"plug_hour", Number(&P::plug_hour, 0, 24, true)},
        {"unplug_hour", Number(&P::unplug_hour, 0, 24, true)},
        {"schedule_jitter_min", Number(&P::schedule_jitter_min, 0, 180)},
        {"day_current_ma", Number(&P::day_current_ma, 0, 5000)},
        {"day_current_spread_pct", Number(&P::day_current_spread_pct, 0, 90)},
        {"standby_current_ma", Number(&P::standby_current_ma, 0, 500)},
        {"eis_hour", Number(&P::eis_hour, 0, 24, true)},
        {"seed", Integer(&P::seed, 0, UINT32_MAX)},
        {"aging_scale", Number(&P::aging_scale, 0, 1000)},
        {"battery_name", Text(
                             &P::battery_name,
                             [](const std::string& s) {
                                 return s.size() < 32 &&
                                        s.find_first_of("\n\r") == std::string::npos;
                             },
                             "one line of at most 31 characters")},
    };
    return readers;
}

}  // namespace

bool ModelParams::IsDirectAdapter() const {
    for (const char* t : kDirectTypes) {
        if (adapter == t) {
            return true;
        }
    }
    return false;
}

bool IsChargerTypeWord(const std::string& word) {
    for (const char* t : kBuckTypes) {
        if (word == t) {
            return true;
        }
    }
    for (const char* t : kDirectTypes) {
        if (word == t) {
            return true;
        }
    }
    return false;
}

bool LoadModelParams(const Json::Value& obj, ModelParams& out, std::string& error) {
    out = ModelParams{};
    if (obj.isNull()) {
        return true;
    }
    if (!obj.isObject()) {
        error = "model parameters must be a JSON object";
        return false;
    }
    const auto& readers = Readers();
    for (const std::string& key : obj.getMemberNames()) {
        auto it = readers.find(key);
        if (it == readers.end()) {
            error = "model parameter \"" + key + "\" is unknown";
            return false;
        }
        std::string why;
        if (!it->second(obj[key], out, why)) {
            error = "model parameter \"" + key + "\" " + why;
            return false;
        }
    }
    if (out.charger_type_code == 5) {
        error = "model parameter \"charger_type_code\" is 5, which means no charger";
        return false;
    }
    // Overnight charging: the morning unplug must come before the evening plug-in on every
    // day, whatever the spread draws.
    const double spreadH = out.schedule_jitter_min / 60.0;
    if (out.unplug_hour + spreadH >= out.plug_hour - spreadH) {
        error = "model parameters \"unplug_hour\" (" + Num(out.unplug_hour) +
                ") and \"plug_hour\" (" + Num(out.plug_hour) +
                ") must describe overnight charging: unplug + spread before plug - spread";
        return false;
    }
    return true;
}

}  // namespace sim
