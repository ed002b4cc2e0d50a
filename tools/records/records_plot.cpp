// Plot data, gnuplot scripts and the gnuplot run.
#include "tools/records/records_plot.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "tools/records/records_util.h"

namespace Inspect {

namespace {

// One picture: its data files (name -> content) and its script.
struct Plot {
    std::string stem;
    std::map<std::string, std::string> data;
    std::string script;
};

// A file-name-safe form of a name taken from a record.
std::string Safe(const std::string& name) {
    std::string out;
    for (char c : name) {
        out += (isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '.') ? c : '_';
    }
    return out.empty() ? "_" : out;
}

// Text inside a single-quoted gnuplot string.
std::string Quoted(const std::string& text) {
    std::string out = "'";
    for (char c : text) {
        out += c == '\'' ? std::string("''") : std::string(1, c);
    }
    return out + "'";
}

std::string Header(const std::string& stem, const std::string& title, int height = 500) {
    std::ostringstream s;
    s << "set terminal svg size 960," << height
      << " dynamic noenhanced font 'sans,11' background rgb 'white'\n"
      << "set output " << Quoted(stem + ".svg") << "\n"
      << "set title " << Quoted(title) << "\n"
      << "set grid\nset key top right\n";
    return s.str();
}

const char* kTimeAxis =
    "set xdata time\nset timefmt '%s'\nset format x \"%Y-%m-%d\\n%H:%M\"\n"
    "set xlabel 'UTC'\n";

// Full precision: swell values are thousandths.
std::string Num(const Json::Value& v) {
    char buf[32];
    snprintf(buf, sizeof(buf), "%.10g", v.isNumeric() ? v.asDouble() : 0.0);
    return buf;
}

bool BaspPlot(const InspectedRecord& r, Plot& p) {
    const Json::Value& d = r.data;
    std::ostringstream fcc;
    for (const auto& f : d["fcc_ring"]["records"]) {
        fcc << f["first_seen"].asInt64() << " " << Num(f["fcc_mah"]) << "\n";
    }
    std::ostringstream levels;
    for (const auto& s : d["stages"]) {
        levels << Num(s["level"]) << " " << Num(s["days"]) << "\n";
    }
    if (fcc.str().empty() && levels.str().empty()) {
        return false;
    }
    p.stem = "basp_" + Safe(d["battery"].asString());
    std::ostringstream s;
    s << Header(p.stem, "", 700) << "set multiplot layout 2,1 title "
      << Quoted("battery " + d["battery"].asString() + ": aging level " + Num(d["level"]) +
                " (accounted up to " + d["level_accounted_at_text"].asString() + " UTC)")
      << "\n";
    if (!fcc.str().empty()) {
        p.data[p.stem + "_fcc.dat"] = fcc.str();
        s << "set title 'learned full-charge capacity (first seen)'\n"
          << kTimeAxis << "set ylabel 'mAh'\n"
          << "plot " << Quoted(p.stem + "_fcc.dat")
          << " using 1:2 with linespoints pt 7 title 'FCC'\n"
          << "unset xdata\nset format x '%g'\n";
    }
    if (!levels.str().empty()) {
        p.data[p.stem + "_levels.dat"] = levels.str();
        s << "set title 'time spent at each aging level'\nset xlabel 'level'\n"
          << "set ylabel 'days'\nset style fill solid 0.5\nset boxwidth 0.6\nset xtics 1\n"
          << "set yrange [0:*]\n"
          << "plot " << Quoted(p.stem + "_levels.dat") << " using 1:2 with boxes title 'days'\n";
    }
    s << "unset multiplot\n";
    p.script = s.str();
    return true;
}

bool AswPlot(const InspectedRecord& r, Plot& p) {
    const Json::Value& d = r.data;
    Json::Value days = d["days"];
    if (d["today"].isObject()) {
        days.append(d["today"]);
    }
    bool swell = false;
    for (const auto& day : days) {
        swell = swell || day["swell"].isNumeric();
    }
    std::ostringstream data;
    for (const auto& day : days) {
        const Json::Value& y = swell ? day["swell"] : day["charger_pct"];
        if (day["start"].asInt64() != 0 && y.isNumeric()) {
            data << day["start"].asInt64() << " " << Num(y) << "\n";
        }
    }
    if (data.str().empty()) {
        return false;
    }
    p.stem = "asw_" + Safe(d["battery"].asString());
    p.data[p.stem + ".dat"] = data.str();
    std::ostringstream s;
    s << Header(p.stem, "battery " + d["battery"].asString() +
                            (swell ? ": swell per day"
                                   : ": charger connected per day (swell "
                                     "table unknown)"))
      << kTimeAxis << "set format x '%m-%d'\nset ylabel " << Quoted(swell ? "swell" : "%")
      << "\nset style fill solid 0.5\nset boxwidth 69120 absolute\nset yrange [0:*]\n"
      << "plot " << Quoted(p.stem + ".dat") << " using ($1+43200):2 with boxes title "
      << Quoted(swell ? "swell of the day" : "charger connected") << "\n";
    p.script = s.str();
    return true;
}

bool CvtPlot(const InspectedRecord& r, Plot& p) {
    std::ostringstream data;
    const Json::Value& results = r.data["results"];
    for (Json::ArrayIndex i = results.size(); i-- > 0;) {  // oldest first
        data << results[i]["time"].asInt64() << " " << Num(results[i]["measured_s"]) << " "
             << Num(results[i]["corrected_s"]) << "\n";
    }
    if (data.str().empty()) {
        return false;
    }
    p.stem = "cvt";
    p.data["cvt.dat"] = data.str();
    p.script = Header(p.stem, "constant-voltage time per charge") + kTimeAxis +
               "set ylabel 's'\nplot 'cvt.dat' using 1:2 with points pt 7 title 'measured', "
               "'cvt.dat' using 1:3 with linespoints pt 5 title 'temperature-corrected'\n";
    return true;
}

bool LogPlot(const InspectedRecord& r, Plot& p) {
    const bool acr = r.kind == "acr";
    std::ostringstream data;
    for (const auto& rec : r.data["records"]) {
        if (rec["time"].isNumeric()) {
            data << rec["time"].asInt64() << " " << Num(acr ? rec["acr"] : rec["dcr"]) << " "
                 << Num(acr ? rec["ic_temp_max_c"] : rec["r0"]) << "\n";
        }
    }
    if (data.str().empty()) {
        return false;
    }
    p.stem = r.kind;
    p.data[p.stem + ".dat"] = data.str();
    std::string file = Quoted(p.stem + ".dat");
    p.script = Header(p.stem, acr ? "AC resistance per measurement"
                                  : "DC resistance per "
                                    "measurement") +
               kTimeAxis + "set ylabel 'resistance (kernel units)'\nplot " + file +
               " using 1:2 with linespoints pt 7 title " + (acr ? "'ACR'" : "'DCR'") +
               (acr ? "" : ", " + file + " using 1:3 with linespoints pt 5 title 'R0'") + "\n";
    return true;
}

bool EisPlot(const InspectedRecord& r, Plot& p) {
    std::map<int64_t, std::string> byFreq;
    for (const auto& raw : r.data["raw"]) {
        byFreq[raw["freq_hz"].asInt64()] += Num(raw["cycles"]) + " " + Num(raw["magnitude"]) + "\n";
    }
    if (byFreq.empty()) {
        return false;
    }
    p.stem = Safe(r.path.substr(r.path.rfind('/') + 1));
    std::string plot = "plot ";
    for (const auto& f : byFreq) {
        std::string file = p.stem + "_" + std::to_string(f.first) + "hz.dat";
        p.data[file] = f.second;
        plot += (plot == "plot " ? "" : ", ") + Quoted(file) + " using 1:2 with linespoints pt 7 " +
                "title " + Quoted(std::to_string(f.first) + " Hz");
    }
    p.script = Header(p.stem, "impedance history (" + r.data["hash"].asString() + " hash)") +
               "set xlabel 'cycles'\nset ylabel 'magnitude'\n" + plot + "\n";
    return true;
}

bool WriteText(const std::string& path, const std::string& text, std::string& error) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    out.close();
    if (!out) {
        error = "cannot write " + path + ": " + strerror(errno);
        return false;
    }
    return true;
}

bool MakeDirs(const std::string& dir, std::string& error) {
    std::string part;
    std::istringstream in(dir);
    std::string piece;
    if (!dir.empty() && dir[0] == '/') {
        part = "/";
    }
    while (std::getline(in, piece, '/')) {
        if (piece.empty()) {
            continue;
        }
        part += piece + "/";
        if (mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) {
            error = "cannot create " + part + ": " + strerror(errno);
            return false;
        }
    }
    struct stat st {};
    if (stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        error = dir + " is not a directory";
        return false;
    }
    return true;
}

// Runs `gnuplot script` inside `dir`; false with the reason.
bool RunGnuplot(const std::string& gnuplot, const std::string& dir, const std::string& script,
                std::string& error) {
    pid_t pid = fork();
    if (pid < 0) {
        error = std::string("cannot start gnuplot: ") + strerror(errno);
        return false;
    }
    const std::string log = script.substr(0, script.rfind('.')) + ".log";
    if (pid == 0) {
        // gnuplot's remarks (e.g. on a range of one point) go to the log beside the script.
        if (chdir(dir.c_str()) == 0 && freopen(log.c_str(), "w", stderr) != nullptr) {
            execl(gnuplot.c_str(), "gnuplot", script.c_str(), static_cast<char*>(nullptr));
        }
        _exit(127);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) {
            error = std::string("waiting for gnuplot: ") + strerror(errno);
            return false;
        }
    }
    struct stat st {};
    const std::string logPath = dir + "/" + log;
    if (stat(logPath.c_str(), &st) == 0 && st.st_size == 0) {
        unlink(logPath.c_str());  // nothing to say
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        error =
            "gnuplot failed on " + dir + "/" + script + " (its messages: " + dir + "/" + log + ")";
        return false;
    }
    return true;
}

}  // namespace

std::string FindGnuplot() {
    const char* env = getenv("PATH");
    std::istringstream path(env != nullptr ? env : "/usr/bin:/bin");
    std::string dir;
    while (std::getline(path, dir, ':')) {
        std::string candidate = (dir.empty() ? "." : dir) + "/gnuplot";
        struct stat st {};
        if (stat(candidate.c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
            access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
    }
    return "";
}

bool WritePlots(const std::vector<InspectedRecord>& records, const std::string& dir,
                const std::string& gnuplot, std::vector<std::string>& made, std::string& error) {
    if (!MakeDirs(dir, error)) {
        return false;
    }
    std::set<std::string> stems;
    for (const InspectedRecord& r : records) {
        if (!r.data.isObject()) {
            continue;
        }
        Plot p;
        bool drawn = false;
        if (r.kind == "basp") {
            drawn = BaspPlot(r, p);
        } else if (r.kind == "asw") {
            drawn = AswPlot(r, p);
        } else if (r.kind == "cvt") {
            drawn = CvtPlot(r, p);
        } else if (r.kind == "acr" || r.kind == "dcr") {
            drawn = LogPlot(r, p);
        } else if (r.kind == "eis") {
            drawn = EisPlot(r, p);
        }
        if (!drawn) {
            continue;
        }
        if (!stems.insert(p.stem).second) {
            continue;  // the same picture from a second copy of the record
        }
        for (const auto& file : p.data) {
            if (!WriteText(dir + "/" + file.first, file.second, error)) {
                return false;
            }
        }
        const std::string script = p.stem + ".gp";
        if (!WriteText(dir + "/" + script, p.script, error) ||
            !RunGnuplot(gnuplot, dir, script, error)) {
            return false;
        }
        made.push_back(p.stem + ".svg");
    }
    return true;
}

}  // namespace Inspect
