#include "sim/fleet/fleet_results.h"

#include <json/json.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "sim/fleet/fleet_plan.h"
#include "sim/lab/arm_figures.h"
#include "sim/lab/svg_plot.h"

namespace fs = std::filesystem;

namespace sim {
namespace {

Json::Value Number(double v) {
    return std::isfinite(v) ? Json::Value(v) : Json::Value();
}

bool WriteAtomically(const std::string& path, const std::string& text, std::string& error) {
    const std::string tmp = path + ".tmp";
    {
        std::ofstream out(tmp);
        out << text;
        if (!out.flush()) {
            error = "cannot write " + tmp;
            return false;
        }
    }
    std::error_code ec;
    fs::rename(tmp, path, ec);
    if (ec) {
        error = "cannot write " + path + ": " + ec.message();
        return false;
    }
    return true;
}

std::string JsonText(const Json::Value& v) {
    Json::StreamWriterBuilder b;
    b["indentation"] = "  ";
    return Json::writeString(b, v) + "\n";
}

Json::Value KeyJson(const FleetKey& k) {
    Json::Value v;
    v["scenario"] = k.scenario;
    v["config"] = k.config;
    v["seed"] = k.seed;
    v["phones"] = k.phones;
    v["days"] = k.days;
    v["profiles"] = Json::Value(Json::arrayValue);
    for (const std::string& p : k.profiles)
        v["profiles"].append(p);
    return v;
}

bool KeyFrom(const Json::Value& v, FleetKey& k) {
    if (!v.isObject() || !v["scenario"].isString() || !v["config"].isString() ||
        !v["seed"].isUInt() || !v["phones"].isInt() || !v["days"].isNumeric() ||
        !v["profiles"].isArray()) {
        return false;
    }
    k.scenario = v["scenario"].asString();
    k.config = v["config"].asString();
    k.seed = v["seed"].asUInt();
    k.phones = v["phones"].asInt();
    k.days = v["days"].asDouble();
    for (const Json::Value& p : v["profiles"]) {
        if (!p.isString())
            return false;
        k.profiles.push_back(p.asString());
    }
    return k.phones >= 0;
}

struct Stats {
    double p5, p50, p95;
    size_t n;
};

Stats StatsOf(const std::vector<FleetPhoneResult>& rs, const std::string& key,
              const std::string& profile) {
    std::vector<double> values;
    for (const FleetPhoneResult& r : rs) {
        auto it = r.figures.find(key);
        if (r.ok && (profile.empty() || r.profile == profile) && it != r.figures.end()) {
            values.push_back(it->second);
        }
    }
    Stats s{};
    s.p5 = Percentile(values, 5);  // drops the NaN values first
    s.p50 = Percentile(values, 50);
    s.p95 = Percentile(values, 95);
    s.n = values.size();
    return s;
}

std::string Fmt(double v) {
    if (!std::isfinite(v))
        return "&ndash;";
    char buf[32];
    snprintf(buf, sizeof(buf), "%.3g", v);
    return buf;
}

}  // namespace

bool WriteShard(const std::string& path, const FleetShard& s, std::string& error) {
    Json::Value v;
    v["fleet"] = KeyJson(s.key);
    v["shard"] = s.shard;
    v["shards"] = s.shards;
    v["results"] = Json::Value(Json::arrayValue);
    for (const FleetPhoneResult& r : s.results) {
        Json::Value p;
        p["phone"] = r.index;
        p["profile"] = r.profile;
        p["seed"] = r.seed;
        p["outcome"] = r.outcome;
        p["ok"] = r.ok;
        p["figures"] = Json::Value(Json::objectValue);
        for (const auto& kv : r.figures)
            p["figures"][kv.first] = Number(kv.second);
        v["results"].append(p);
    }
    return WriteAtomically(path, JsonText(v), error);
}

bool ReadShard(const std::string& path, FleetShard& s, std::string& error) {
    std::ifstream in(path);
    Json::Value v;
    Json::CharReaderBuilder b;
    std::string why;
    if (!in || !Json::parseFromStream(b, in, &v, &why) || !v.isObject()) {
        error = path + ": " + (in ? "not JSON: " + why : std::string("cannot read"));
        return false;
    }
    s = FleetShard{};
    if (!KeyFrom(v["fleet"], s.key) || !v["shard"].isInt() || !v["shards"].isInt() ||
        !v["results"].isArray()) {
        error = path + ": not a fleet shard file";
        return false;
    }
    s.shard = v["shard"].asInt();
    s.shards = v["shards"].asInt();
    for (const Json::Value& p : v["results"]) {
        FleetPhoneResult r;
        if (!p.isObject() || !p["phone"].isInt() || !p["figures"].isObject() ||
            p["phone"].asInt() < 0 || p["phone"].asInt() >= s.key.phones) {
            error = path + ": a result without a valid phone number";
            return false;
        }
        r.index = p["phone"].asInt();
        r.profile = p["profile"].asString();
        r.seed = p["seed"].asUInt();
        r.outcome = p["outcome"].asString();
        r.ok = p["ok"].asBool();
        for (const std::string& k : p["figures"].getMemberNames()) {
            const Json::Value& f = p["figures"][k];
            r.figures[k] = f.isNumeric() ? f.asDouble() : NAN;
        }
        s.results.push_back(r);
    }
    return true;
}

bool MergeShards(const std::vector<FleetShard>& shards, FleetMerged& out, std::string& error) {
    if (shards.empty()) {
        error = "no shard to merge";
        return false;
    }
    out = FleetMerged{};
    out.key = shards[0].key;
    std::map<int, FleetPhoneResult> byIndex;
    for (const FleetShard& s : shards) {
        if (!(s.key == out.key)) {
            error =
                "the shards are of different fleets (scenario, configuration, seed, phones, "
                "days or profiles differ)";
            return false;
        }
        for (const FleetPhoneResult& r : s.results) {
            auto it = byIndex.find(r.index);
            if (it == byIndex.end() || (!it->second.ok && r.ok)) {
                byIndex[r.index] = r;  // a phone run twice: a completed result wins
            }
        }
    }
    for (int i = 0; i < out.key.phones; ++i) {
        auto it = byIndex.find(i);
        if (it == byIndex.end() || !it->second.ok) {
            out.missing.push_back(i);
        }
        if (it != byIndex.end()) {
            out.results.push_back(it->second);
        }
    }
    return true;
}

bool WriteFleetReport(const std::string& dir, const FleetMerged& m, std::string& error) {
    const std::vector<NamedFigure> figures = SummaryFigures(ArmFigures{});
    std::vector<std::string> groups = {""};
    for (const std::string& p : m.key.profiles)
        groups.push_back(p);

    Json::Value v;
    v["fleet"] = KeyJson(m.key);
    v["phones"] = static_cast<int>(m.results.size() - 0);
    v["missing"] = Json::Value(Json::arrayValue);
    for (int i : m.missing)
        v["missing"].append(i);
    std::ostringstream html;
    html << "<!doctype html>\n<html lang='en'><head><meta charset='utf-8'><title>quen-sim fleet: "
         << HtmlEscape(m.key.scenario) << "</title>\n<style>body{font-family:sans-serif;"
         << "max-width:1100px;margin:auto}table{border-collapse:collapse;font-size:13px}"
         << "td,th{border:1px solid #ccc;padding:3px 8px;text-align:right}"
         << "td:first-child{text-align:left}</style></head><body>\n<h1>quen-sim fleet: "
         << HtmlEscape(m.key.scenario) << ", " << m.key.phones << " phones, " << m.key.days
         << " days, configuration " << HtmlEscape(m.key.config) << ", seed " << m.key.seed
         << "</h1>\n<p>" << (m.key.phones - static_cast<int>(m.missing.size()))
         << " phones with results";
    if (!m.missing.empty()) {
        html << "; <b>" << m.missing.size() << " missing or failed</b> (phones";
        for (size_t i = 0; i < m.missing.size() && i < 50; ++i)
            html << " " << m.missing[i];
        html << (m.missing.size() > 50 ? " ...)" : ")");
    }
    html << ".</p>\n";
    for (const std::string& g : groups) {
        Json::Value& gv = v["percentiles"][g.empty() ? "all" : g];
        html << "<h2>" << (g.empty() ? "All phones" : "User profile " + HtmlEscape(g))
             << "</h2>\n<table><tr><th>figure</th><th>p5</th><th>p50</th><th>p95</th>"
                "<th>phones</th></tr>\n";
        for (const NamedFigure& f : figures) {
            const Stats s = StatsOf(m.results, f.key, g);
            gv[f.key]["p5"] = Number(s.p5);
            gv[f.key]["p50"] = Number(s.p50);
            gv[f.key]["p95"] = Number(s.p95);
            gv[f.key]["n"] = static_cast<Json::UInt64>(s.n);
            html << "<tr><td>" << HtmlEscape(f.label) << "</td><td>" << Fmt(s.p5) << "</td><td>"
                 << Fmt(s.p50) << "</td><td>" << Fmt(s.p95) << "</td><td>" << s.n << "</td></tr>\n";
        }
        html << "</table>\n";
    }
    html << "</body></html>\n";
    return WriteAtomically(dir + "/fleet.json", JsonText(v), error) &&
           WriteAtomically(dir + "/fleet.html", html.str(), error);
}

}  // namespace sim
