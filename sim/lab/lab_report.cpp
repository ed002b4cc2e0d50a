#include "sim/lab/lab_report.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "sim/lab/svg_plot.h"

namespace fs = std::filesystem;

namespace sim {
namespace {

std::string Fmt(const char* format, double v) {
    if (!std::isfinite(v)) {
        return "&ndash;";
    }
    char buf[64];
    snprintf(buf, sizeof(buf), format, v);
    return buf;
}

std::string ReadAll(const std::string& path) {
    std::ifstream in(path);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

// The baseline of `arm`: the arm without the daemon for the same user profile.
const LabArm* BaselineOf(const std::vector<LabArm>& arms, const LabArm& arm) {
    for (const LabArm& a : arms) {
        if (!a.plan.withDaemon && a.plan.profile == arm.plan.profile && a.haveTrace) {
            return &a;
        }
    }
    return nullptr;
}

std::string ConfigText(const ArmPlan& plan) {
    if (!plan.withDaemon) {
        return "(no daemon: the charger's defaults, nothing written to the limit nodes)";
    }
    const std::string file =
        plan.configFile.empty() ? plan.scenario.deviceDir + "/" + kConfigFile : plan.configFile;
    return file + ":\n\n" + ReadAll(file);
}

enum class Column { kFcc, kVterm, kCurrent, kSocCap, kSwell, kBasp, kAsw };

PlotSeries Series(const LabArm& a, Column c) {
    PlotSeries s;
    s.label = a.plan.name;
    s.x = a.series.day;
    s.steps = c != Column::kFcc && c != Column::kSwell;
    auto take = [&](const auto& v) { s.y.assign(v.begin(), v.end()); };
    switch (c) {
        case Column::kFcc:
            take(a.series.fccMah);
            break;
        case Column::kVterm:
            take(a.series.vtermMv);
            break;
        case Column::kCurrent:
            take(a.series.currentLimitMa);
            break;
        case Column::kSocCap:
            take(a.series.socCapPct);
            break;
        case Column::kSwell:
            take(a.series.swellTotal);
            break;
        case Column::kBasp:
            take(a.series.baspLevel);
            break;
        case Column::kAsw:
            take(a.series.aswScene);
            break;
    }
    return s;
}

void SummaryTable(std::ostream& html, const std::vector<LabArm>& arms) {
    html << "<h2>Summary</h2>\n<table class='grid'><tr><th>arm</th><th>user profile</th>"
            "<th>configuration</th><th>outcome</th><th>days</th><th>capacity at 1 year</th>"
            "<th>capacity at 2 years</th><th>capacity at the end</th><th>cycles</th>"
            "<th>charging per day</th><th>charge time cost</th><th>limit changes</th>"
            "<th>h &ge; 4.30 V</th><th>h &ge; 4.30 V &amp; &ge; 35 &deg;C</th>"
            "<th>swelling</th><th>kernel writes</th></tr>\n";
    for (const LabArm& a : arms) {
        const ArmFigures& f = a.figures;
        html << "<tr><td>" << HtmlEscape(a.plan.name) << "</td><td>"
             << HtmlEscape(a.plan.profile.empty() ? "(scenario)" : a.plan.profile) << "</td><td>"
             << HtmlEscape(a.plan.config) << "</td><td>"
             << HtmlEscape(a.haveTrace ? a.summary.outcome : "no result: " + a.error);
        if (a.haveTrace && a.summary.logErrors > 0) {
            html << "<br><b>" << a.summary.logErrors << " error lines in quen.log</b>";
        }
        html << "</td>";
        if (!a.haveTrace) {
            html << "<td colspan='12'></td></tr>\n";
            continue;
        }
        const LabArm* base = BaselineOf(arms, a);
        std::string cost = "&ndash;";
        if (base != nullptr && base != &a) {
            // Rounded first, so that a cost under half a minute shows as 0, not -0.
            const double minutes =
                std::round(60.0 * (f.chargingHoursPerDay - base->figures.chargingHoursPerDay));
            cost = minutes == 0 ? "0 min/day" : Fmt("%+.0f min/day", minutes);
        }
        html << "<td>" << Fmt("%.1f", f.days) << "</td><td>" << Fmt("%.2f %%", f.capacity1yPct)
             << "</td><td>" << Fmt("%.2f %%", f.capacity2yPct) << "</td><td>"
             << Fmt("%.2f %%", f.capacityEndPct) << " (" << Fmt("%.0f", f.fccEndMah)
             << " mAh)</td><td>" << Fmt("%.1f", a.summary.cyclesEnd) << "</td><td>"
             << Fmt("%.2f h", f.chargingHoursPerDay) << "</td><td>" << cost << "</td><td>"
             << f.limitChanges << "</td><td>" << Fmt("%.1f", f.hoursHighVoltage) << "</td><td>"
             << Fmt("%.1f", f.hoursHighVoltageHot) << "</td><td>" << Fmt("%.4f", f.swellEnd)
             << "</td><td>" << a.summary.kernelWrites << "</td></tr>\n";
    }
    html << "</table>\n<p class='note'>Capacity is the full-charge capacity against the arm's "
            "start. Charge time cost: time spent charging per day against the arm without the "
            "daemon for the same user. Limit changes: changes of the termination voltage, "
            "current limit, SOC cap or charge stop in force, as the user would notice them. "
            "Swelling: the daemon's own estimate (none without it).</p>\n";
}

void ExposureTable(std::ostream& html, const std::vector<LabArm>& arms) {
    html << "<h2>Time at high voltage by temperature (hours)</h2>\n<table class='grid'><tr>"
            "<th>arm</th>";
    const char* temps[] = {"&lt; 35 &deg;C", "35&ndash;45 &deg;C", "&ge; 45 &deg;C"};
    for (int v = kVoltBands - 1; v >= 0; --v) {
        for (const char* t : temps) {
            html << "<th>" << Fmt(v + 1 < kVoltBands ? "%.2f" : "&ge; %.2f", kVoltBandsV[v])
                 << (v + 1 < kVoltBands ? Fmt("&ndash;%.2f V", kVoltBandsV[v + 1]) : " V") << "<br>"
                 << t << "</th>";
        }
    }
    html << "</tr>\n";
    for (const LabArm& a : arms) {
        if (!a.haveTrace) {
            continue;
        }
        html << "<tr><td>" << HtmlEscape(a.plan.name) << "</td>";
        for (int v = kVoltBands - 1; v >= 0; --v) {
            for (int t = 0; t < kTempBands; ++t) {
                html << "<td>" << Fmt("%.1f", a.figures.exposureHours[v][t]) << "</td>";
            }
        }
        html << "</tr>\n";
    }
    html << "</table>\n";
}

void LevelTable(std::ostream& html, const std::vector<LabArm>& arms) {
    std::set<int> levels, scenes;
    for (const LabArm& a : arms) {
        for (const auto& kv : a.figures.baspLevelDay)
            levels.insert(kv.first);
        for (const auto& kv : a.figures.aswSceneDay)
            scenes.insert(kv.first);
    }
    html << "<h2>Days to each aging level and anti-swelling scene</h2>\n";
    if (levels.empty() && scenes.empty()) {
        html << "<p>No arm reached an aging level or an anti-swelling scene.</p>\n";
        return;
    }
    html << "<table class='grid'><tr><th>arm</th>";
    for (int l : levels)
        html << "<th>aging level " << l << "</th>";
    for (int s : scenes)
        html << "<th>scene " << s << "</th>";
    html << "</tr>\n";
    for (const LabArm& a : arms) {
        html << "<tr><td>" << HtmlEscape(a.plan.name) << "</td>";
        for (int l : levels) {
            auto it = a.figures.baspLevelDay.find(l);
            html << "<td>"
                 << (it == a.figures.baspLevelDay.end() ? "&ndash;" : Fmt("%.1f", it->second))
                 << "</td>";
        }
        for (int s : scenes) {
            auto it = a.figures.aswSceneDay.find(s);
            html << "<td>"
                 << (it == a.figures.aswSceneDay.end() ? "&ndash;" : Fmt("%.1f", it->second))
                 << "</td>";
        }
        html << "</tr>\n";
    }
    html << "</table>\n";
}

void Configurations(std::ostream& html, const std::vector<LabArm>& arms) {
    html << "<h2>Configurations and user profiles</h2>\n<div class='side'>\n";
    std::set<std::string> shown;
    for (const LabArm& a : arms) {
        if (shown.insert("c:" + a.plan.config).second) {
            html << "<div><h3>configuration " << HtmlEscape(a.plan.config) << "</h3><pre>"
                 << HtmlEscape(ConfigText(a.plan)) << "</pre></div>\n";
        }
    }
    for (const LabArm& a : arms) {
        if (shown.insert("p:" + a.plan.profile).second) {
            html << "<div><h3>user "
                 << HtmlEscape(a.plan.profile.empty() ? "(scenario)" : a.plan.profile)
                 << "</h3><pre>" << HtmlEscape(a.profileText) << "</pre></div>\n";
        }
    }
    html << "</div>\n";
}

}  // namespace

void LoadArmResults(std::vector<LabArm>& arms) {
    for (LabArm& a : arms) {
        std::string error;
        if (!ReadSummary(a.plan.outDir, a.summary, error) ||
            !ReadTrace(a.plan.outDir + "/trace.csv", a.series, error)) {
            a.haveTrace = false;
            if (a.error.empty()) {
                a.error = error;
            }
            continue;
        }
        a.haveTrace = true;
        a.figures = ComputeFigures(a.series, a.plan.withDaemon);
    }
}

bool WriteLabReport(const std::string& path, const std::string& title,
                    const std::vector<LabArm>& arms, std::string& error) {
    std::ostringstream html;
    html << "<!doctype html>\n<html lang='en'><head><meta charset='utf-8'><title>"
         << HtmlEscape(title) << "</title>\n<style>\n"
         << "body{font-family:sans-serif;max-width:1200px;margin:auto;padding:0 1em}\n"
         << "table.grid{border-collapse:collapse;font-size:13px}\n"
         << "table.grid td,table.grid th{border:1px solid #ccc;padding:3px 8px;text-align:right}\n"
         << "table.grid td:first-child{text-align:left}\n"
         << "svg.plot{width:100%;height:auto;display:block;margin:1em 0}\n"
         << "svg .frame{fill:none;stroke:#444}svg .grid{stroke:#ddd}\n"
         << "svg text{font-size:12px;font-family:sans-serif}svg .title{font-size:15px;"
            "font-weight:bold}\n"
         << "svg .xt,svg .xl{text-anchor:middle}svg .yt{text-anchor:end}svg .yl{"
            "text-anchor:middle}\n"
         << ".side{display:flex;gap:1em;overflow-x:auto}.side pre{font-size:11px;"
            "max-height:30em;overflow:auto;background:#f6f6f6;padding:.5em}\n"
         << ".note{color:#555;font-size:13px}\n</style></head><body>\n<h1>" << HtmlEscape(title)
         << "</h1>\n";
    if (!arms.empty()) {
        const Scenario& sc = arms[0].plan.scenario;
        const Json::Value& scale = sc.model["aging_scale"];
        html << "<p>Scenario " << HtmlEscape(sc.file) << ": " << Fmt("%.1f", sc.days)
             << " simulated days from the scenario's start";
        if (scale.isNumeric() && scale.asDouble() != 1.0) {
            // Capacity figures are then those of an aging N times faster than the cell's.
            html << "; <b>aging accelerated " << Fmt("%g", scale.asDouble())
                 << "&times;</b> (the scenario's aging_scale)";
        }
        html << ".</p>\n";
    }
    SummaryTable(html, arms);

    bool anyDaemon = false;
    for (const LabArm& a : arms) {
        anyDaemon = anyDaemon || (a.plan.withDaemon && a.haveTrace);
    }
    struct P {
        Column column;
        const char* id;
        const char* title;
        const char* unit;
        bool daemonOnly;
    };
    const P plots[] = {
        {Column::kFcc, "capacity", "Full-charge capacity", "mAh", false},
        {Column::kVterm, "vterm", "Termination voltage in force", "mV", false},
        {Column::kCurrent, "current", "Charge current limit in force", "mA", false},
        {Column::kSocCap, "soc-cap", "SOC window's upper bound in force", "%", false},
        {Column::kSwell, "swelling", "Estimated swelling (the daemon's record)", "swell", true},
        {Column::kBasp, "aging-level", "Aging policy level", "level", true},
        {Column::kAsw, "asw-scene", "Anti-swelling scene", "scene", true},
    };
    html << "<h2>Over time</h2>\n";
    for (const P& p : plots) {
        if (p.daemonOnly && !anyDaemon) {
            continue;
        }
        PlotSpec plan{p.id, p.title, "simulated days", p.unit, {}};
        for (size_t i = 0; i < arms.size(); ++i) {
            const LabArm& a = arms[i];
            if (a.haveTrace && (!p.daemonOnly || a.plan.withDaemon)) {
                plan.series.push_back(Series(a, p.column));
                plan.series.back().colour = static_cast<int>(i);
                plan.series.back().dashed = !a.plan.withDaemon;
            }
        }
        if (!plan.series.empty()) {
            html << RenderSvgPlot(plan);
        }
    }
    if (!anyDaemon) {
        html << "<p class='note'>No arm ran the daemon: no swelling estimate, aging level or "
                "scene to plot.</p>\n";
    }
    ExposureTable(html, arms);
    LevelTable(html, arms);
    Configurations(html, arms);
    html << "<h2>Files</h2>\n<ul>\n";
    const fs::path base = fs::path(path).parent_path();
    for (const LabArm& a : arms) {
        const std::string rel = fs::path(a.plan.outDir).lexically_relative(base).string();
        html << "<li>" << HtmlEscape(a.plan.name) << ": <a href='" << HtmlEscape(rel)
             << "/trace.csv'>trace.csv</a>, <a href='" << HtmlEscape(rel)
             << "/summary.json'>summary.json</a>"
             << (a.plan.withDaemon ? ", <a href='" + HtmlEscape(rel) + "/quen.log'>quen.log</a>"
                                   : std::string())
             << "</li>\n";
    }
    html << "</ul>\n</body></html>\n";

    const std::string tmp = path + ".tmp";
    {
        std::ofstream out(tmp);
        out << html.str();
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

}  // namespace sim
