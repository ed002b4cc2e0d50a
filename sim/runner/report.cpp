#include "sim/runner/report.h"

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace sim {
namespace {

struct Plot {
    const char* file;
    const char* title;
    const char* ylabel;
    const char* lines;  // gnuplot plot clauses over trace.csv (columns by name)
};

// Columns are taken by name from the CSV header, so the trace may gain columns.
const Plot kPlots[] = {
    {"voltage.svg", "Charge voltage limit", "mV",
     "'trace.csv' using 'day':'vterm_mv' with steps lw 2 title 'termination voltage in force', "
     "'' using 'day':(column('voltage_v')*1000) with lines lc rgb '#999999' title 'battery "
     "voltage'"},
    {"current.svg", "Charging current", "mA",
     "'trace.csv' using 'day':'current_limit_ma' with steps lw 2 title 'current limit in force', "
     "'' using 'day':(column('current_a') > 0 ? column('current_a')*1000 : 0) with lines "
     "lc rgb '#999999' title 'charging current'"},
    {"soc.svg", "State of charge and SOC window", "%",
     "'trace.csv' using 'day':'shown_soc' with lines lc rgb '#999999' title 'SOC', "
     "'' using 'day':(column('soc_window') > 0 ? column('soc_high') : 1/0) with steps lw 2 "
     "title 'window high', "
     "'' using 'day':(column('soc_window') > 0 ? column('soc_low') : 1/0) with steps lw 2 "
     "title 'window low'"},
    {"capacity.svg", "Capacity", "mAh",
     "'trace.csv' using 'day':'fcc_mah' with lines lw 2 title 'full-charge capacity'"},
    {"swell.svg", "Estimated swelling, as the daemon records it", "swell",
     "'trace.csv' using 'day':'swell_total' with lines lw 2 title 'whole history', "
     "'' using 'day':'swell_week' with lines lw 2 title 'last seven days'"},
    {"policy.svg", "Aging level and anti-swelling scene", "",
     "'trace.csv' using 'day':'basp_level' with steps lw 2 title 'aging policy level', "
     "'' using 'day':'asw_scene' with steps lw 2 title 'anti-swelling scene'"},
    {"temperature.svg", "Battery temperature", "degC",
     "'trace.csv' using 'day':'temp_c' with lines title 'temperature'"},
};

std::string Escape(const std::string& text) {
    std::string out;
    for (char c : text) {
        switch (c) {
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '&':
                out += "&amp;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

bool DrawPlots(const std::string& dir, std::string& error) {
    const std::string script = dir + "/plots.gp";
    {
        std::ofstream gp(script);
        gp << "# Draws the run's plots from trace.csv: gnuplot plots.gp (in this folder)\n"
              "set datafile separator ','\n"
              "set terminal svg size 960,320 dynamic font 'sans,11'\n"
              "set xlabel 'simulated days'\n"
              "set grid\n"
              "set key outside right top\n";
        for (const Plot& p : kPlots) {
            gp << "set output '" << p.file << "'\nset title '" << p.title << "'\nset ylabel '"
               << p.ylabel << "'\nplot " << p.lines << "\n";
        }
        gp << "unset output\n";
        if (!gp) {
            error = "cannot write " + script;
            return false;
        }
    }
    std::string cmd = "cd '" + dir + "' && gnuplot plots.gp 2> gnuplot.log";
    int rc = system(cmd.c_str());
    if (rc != 0) {
        error = WIFEXITED(rc) && WEXITSTATUS(rc) == 127
                    ? "gnuplot is not installed (Debian package gnuplot-nox): no plots"
                    : "gnuplot failed, see " + dir + "/gnuplot.log";
        return false;
    }
    return true;
}

std::string Changes(const std::vector<std::pair<double, unsigned>>& changes) {
    if (changes.empty()) {
        return "none";
    }
    std::string out;
    char buf[64];
    for (const auto& c : changes) {
        snprintf(buf, sizeof(buf), "%sday %.2f &rarr; %u", out.empty() ? "" : ", ", c.first,
                 c.second);
        out += buf;
    }
    return out;
}

}  // namespace

bool WriteReport(const std::string& dir, const RunSummary& s, std::string& error) {
    bool plotted = DrawPlots(dir, error);
    std::ofstream html(dir + "/report.html");
    char buf[256];
    html << "<!doctype html>\n<html><head><meta charset='utf-8'><title>quen-sim: "
         << Escape(s.scenario) << "</title>\n<style>body{font-family:sans-serif;max-width:1000px;"
         << "margin:auto}td{padding:2px 12px}img{width:100%}</style></head><body>\n"
         << "<h1>quen-sim: " << Escape(s.scenario) << "</h1>\n<table>\n";
    auto row = [&](const std::string& k, const std::string& v) {
        html << "<tr><td>" << k << "</td><td>" << v << "</td></tr>\n";
    };
    row("outcome", Escape(s.outcome));
    snprintf(buf, sizeof(buf), "%.2f simulated days in %.1f s (%.2f days per second, speed %.0f)",
             s.simulatedDays, s.realSeconds,
             s.realSeconds > 0 ? s.simulatedDays / s.realSeconds : 0, s.speed);
    row("time", buf);
    snprintf(buf, sizeof(buf), "%.0f mAh &rarr; %.0f mAh (%.2f %%), %.1f cycles", s.fccStartMah,
             s.fccEndMah,
             s.fccStartMah > 0 ? 100.0 * (s.fccStartMah - s.fccEndMah) / s.fccStartMah : 0.0,
             s.cyclesEnd);
    row("capacity", buf);
    snprintf(buf, sizeof(buf), "%.4f", s.swellEnd);
    row("estimated swelling at the end", buf);
    row("aging policy level changes", Changes(s.baspLevels));
    row("anti-swelling scene changes", Changes(s.aswScenes));
    std::string writes = std::to_string(s.kernelWrites) + " (";
    bool first = true;
    for (const auto& kv : s.writesByNode) {
        writes += (first ? "" : ", ") + Escape(kv.first) + ": " + std::to_string(kv.second);
        first = false;
    }
    row("kernel writes", writes + ")");
    row("error lines in the daemon's log", std::to_string(s.logErrors));
    row("samples", std::to_string(s.samples));
    html << "</table>\n<p>Files: <a href='trace.csv'>trace.csv</a>, "
         << "<a href='kernel-writes.log'>kernel-writes.log</a>, <a href='quen.log'>quen.log</a>, "
         << "<a href='plots.gp'>plots.gp</a>.</p>\n";
    if (plotted) {
        for (const Plot& p : kPlots) {
            html << "<img src='" << p.file << "' alt='" << p.title << "'>\n";
        }
    } else {
        html << "<p><b>No plots:</b> " << Escape(error) << "</p>\n";
    }
    html << "</body></html>\n";
    if (!html) {
        error = "cannot write " + dir + "/report.html";
        return false;
    }
    return plotted;
}

}  // namespace sim
