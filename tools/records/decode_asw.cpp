// asw_<battery>.dat: the anti-swelling data file (jsoncpp text).
#include <memory>
#include <sstream>

#include "asw/asw_table.h"
#include "asw/extra_j_value.h"
#include "core/soh_json.h"
#include "tools/records/records_decode.h"
#include "tools/records/records_util.h"

namespace {

constexpr double kSecondsPerDay = 86400.0;
constexpr Json::ArrayIndex kWeekDays = 7;  // closed days that make a week

// Member `key` of `v`, or null when `v` is not an object (never asserts on a wrong type).
Json::Value Member(const Json::Value& v, const char* key) {
    return v.isObject() ? v.get(key, Json::Value()) : Json::Value();
}

// A numeric member as a double; null when absent or not a number.
Json::Value NumberOf(const Json::Value& v, const char* key) {
    Json::Value m = Member(v, key);
    return ExtraJValue::IsNumeric(m) ? Json::Value(m.asDouble()) : Json::Value();
}

int64_t SecondsOf(const Json::Value& v, const char* key) {
    Json::Value m = NumberOf(v, key);
    return m.isNull() ? 0 : static_cast<int64_t>(m.asDouble());
}

Json::Value Percent(const Json::Value& part, const Json::Value& whole) {
    if (part.isNull() || whole.isNull() || whole.asDouble() <= 0) {
        return Json::Value();
    }
    return part.asDouble() / whole.asDouble() * 100.0;
}

// Swell accumulated by one period: the configured swell rates (per day spent in a bin) times
// the period's seconds per bin, plus any swell carried over from the legacy log. Null when the
// rates are unknown or the tables do not fit each other.
Json::Value Swell(const AswTable* rates, const AswTable& times, const Json::Value& element) {
    if (rates == nullptr || !times.IsLegal()) {
        return Json::Value();
    }
    Json::Value product = (*rates) * times;
    if (!ExtraJValue::IsNumeric(product)) {
        return Json::Value();
    }
    double swell = product.asDouble() / kSecondsPerDay;
    Json::Value old = NumberOf(element, "OldAswell");
    if (!old.isNull()) {
        swell += old.asDouble();
    }
    return swell;
}

// The facts of one accounting period (a day, the week, the history).
Json::Value Period(const Json::Value& element, const Json::Value& x, const Json::Value& y,
                   const AswTable* rates, bool& tableOk) {
    Json::Value p(Json::objectValue);
    InspectUtil::PutTime(p, "start", SecondsOf(element, "Tstart"));
    InspectUtil::PutTime(p, "end", SecondsOf(element, "Tend"));
    p["cycle_start"] = NumberOf(element, "CycStart");
    p["cycle_end"] = NumberOf(element, "CycEnd");
    Json::Value stat = NumberOf(element, "Tstat");
    p["accounted_s"] = stat;
    p["charger_s"] = NumberOf(element, "Tusb_in");
    p["sim_s"] = NumberOf(element, "Tsim_in");
    p["scene_s"] = NumberOf(element, "Taction");
    p["charger_pct"] = Percent(p["charger_s"], stat);
    p["sim_pct"] = Percent(p["sim_s"], stat);
    if (element.isObject() && element.isMember("OldAswell")) {
        p["old_swell"] = NumberOf(element, "OldAswell");
    }
    AswTable times(x, y, Member(element, "SwellTimes"));
    tableOk = times.IsLegal();
    p["swell"] = Swell(rates, times, element);
    return p;
}

// Sum of the week's closed days, as the daemon merges them.
Json::Value Week(const Json::Value& days) {
    Json::Value w(Json::objectValue);
    int64_t start = 0;
    int64_t end = 0;
    Json::Value cycleStart;
    Json::Value cycleEnd;
    double sums[4] = {0, 0, 0, 0};
    const char* keys[4] = {"accounted_s", "charger_s", "sim_s", "scene_s"};
    bool swellKnown = true;
    double swell = 0;
    for (Json::ArrayIndex i = 0; i < kWeekDays; ++i) {
        const Json::Value& d = days[i];
        int64_t s = d["start"].asInt64();
        int64_t e = d["end"].asInt64();
        start = (i == 0 || s < start) ? s : start;
        end = e > end ? e : end;
        const Json::Value& cs = d["cycle_start"];
        const Json::Value& ce = d["cycle_end"];
        if (cs.isNumeric() && (cycleStart.isNull() || cs.asDouble() < cycleStart.asDouble())) {
            cycleStart = cs;
        }
        if (ce.isNumeric() && (cycleEnd.isNull() || ce.asDouble() > cycleEnd.asDouble())) {
            cycleEnd = ce;
        }
        for (int k = 0; k < 4; ++k) {
            sums[k] += d[keys[k]].isNull() ? 0.0 : d[keys[k]].asDouble();
        }
        swellKnown = swellKnown && !d["swell"].isNull();
        swell += swellKnown ? d["swell"].asDouble() : 0.0;
    }
    InspectUtil::PutTime(w, "start", start);
    InspectUtil::PutTime(w, "end", end);
    w["cycle_start"] = cycleStart;
    w["cycle_end"] = cycleEnd;
    for (int k = 0; k < 4; ++k) {
        w[keys[k]] = sums[k];
    }
    w["charger_pct"] = Percent(w["charger_s"], w["accounted_s"]);
    w["sim_pct"] = Percent(w["sim_s"], w["accounted_s"]);
    w["swell"] = swellKnown ? Json::Value(swell) : Json::Value();
    return w;
}

}  // namespace

void DecodeAsw(const std::string& bytes, const std::string& battery, const Json::Value& swellTable,
               const std::string& tableSource, InspectedRecord& r) {
    r.kind = "asw";
    if (bytes.empty()) {
        return r.Fail("empty file");
    }
    Json::Value root;
    std::string errors;
    if (!SohJson::Parse(bytes, root, false, &errors)) {
        return r.Fail("not readable as JSON (damaged or truncated): " +
                      InspectUtil::Printable(errors.substr(0, errors.find('\n'))));
    }
    if (!root.isObject()) {
        return r.Fail("not an anti-swelling data file (the JSON is not an object)");
    }
    const Json::Value x = Member(root, "Vbat");
    const Json::Value y = Member(root, "Temp");
    std::unique_ptr<AswTable> rates;
    if (swellTable.isObject()) {
        rates = std::make_unique<AswTable>(Member(swellTable, "Vbat"), Member(swellTable, "Temp"),
                                           Member(swellTable, "Table"));
        if (!rates->IsLegal()) {
            r.notes.push_back("the configured swell table (" + tableSource +
                              ") is not legal: swell not computed");
            rates.reset();
        } else if (!(*rates == AswTable(x, y))) {
            r.notes.push_back("the configured swell table (" + tableSource +
                              ") has other axes than the record: swell not computed");
            rates.reset();
        } else {
            r.notes.push_back("swell computed with the swell table of " + tableSource);
        }
    } else {
        r.notes.push_back(
            "no swell table for this battery in a configuration under the root: "
            "swell not computed");
    }

    Json::Value& d = r.data = Json::Value(Json::objectValue);
    d["battery"] = InspectUtil::Printable(battery);
    Json::Value policy = Member(root, "AswPolicy");
    d["policy"] = policy.isString() ? InspectUtil::Printable(policy.asString()) : Json::Value();
    d["scene"] = NumberOf(root, "Scene");
    d["condition_group"] = NumberOf(root, "ConditonGroupNo");
    InspectUtil::PutTime(d, "last_report", SecondsOf(root, "TReport"));
    d["vbat_axis_mv"] = x;
    d["temp_axis_c"] = y;

    bool tableOk = true;
    bool allTablesOk = true;
    d["history"] = Period(Member(root, "Addup"), x, y, rates.get(), tableOk);
    allTablesOk = allTablesOk && tableOk;
    d["days"] = Json::Value(Json::arrayValue);
    d["today"] = Json::Value();
    d["week"] = Json::Value();
    const Json::Value days = Member(root, "Day");
    if (!days.isArray() || days.empty()) {
        r.Fail("no \"Day\" array with today in it: the daemon cannot load this file");
    } else {
        for (Json::ArrayIndex i = 0; i < days.size(); ++i) {
            Json::Value p = Period(days[i], x, y, rates.get(), tableOk);
            allTablesOk = allTablesOk && tableOk;
            if (i + 1 == days.size()) {
                d["today"] = p;
            } else {
                d["days"].append(p);
            }
        }
        if (days.size() > kWeekDays) {
            d["week"] = Week(d["days"]);
        }
        r.ok = true;
    }
    if (!allTablesOk) {
        r.notes.push_back(
            "some time tables do not fit the record's axes: the daemon restarts "
            "them from zero");
    }
}
