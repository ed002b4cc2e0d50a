#include "sim/lab/arm_figures.h"

#include <fstream>
#include <sstream>

namespace sim {
namespace {

std::vector<std::string> SplitCsv(const std::string& line) {
    std::vector<std::string> out;
    std::stringstream ss(line);
    std::string cell;
    while (std::getline(ss, cell, ',')) {
        out.push_back(cell);
    }
    return out;
}

bool ToDouble(const std::string& text, double& out) {
    char* end = nullptr;
    out = strtod(text.c_str(), &end);
    return end != text.c_str() && *end == '\0';
}

// The capacity at `day`, % of the start: the first row at or past it, when the run got there
// (within one sample of it).
double CapacityAt(const ArmSeries& s, double day) {
    for (size_t i = 0; i < s.Size(); ++i) {
        if (s.day[i] >= day - 1e-6) {
            return s.fccMah[0] > 0 ? 100.0 * s.fccMah[i] / s.fccMah[0] : NAN;
        }
    }
    return NAN;
}

}  // namespace

bool ReadTrace(const std::string& csvPath, ArmSeries& out, std::string& error) {
    std::ifstream in(csvPath);
    std::string line;
    if (!in || !std::getline(in, line)) {
        error = "cannot read " + csvPath;
        return false;
    }
    const std::vector<std::string> header = SplitCsv(line);
    const char* names[] = {"day",        "fcc_mah",          "voltage_v",  "temp_c",   "charging",
                           "vterm_mv",   "current_limit_ma", "soc_window", "soc_high", "status",
                           "basp_level", "asw_scene",        "swell_total"};
    constexpr size_t kColumns = sizeof(names) / sizeof(names[0]);
    size_t col[kColumns];
    for (size_t n = 0; n < kColumns; ++n) {
        col[n] = header.size();
        for (size_t i = 0; i < header.size(); ++i) {
            if (header[i] == names[n]) {
                col[n] = i;
            }
        }
        if (col[n] == header.size()) {
            error = csvPath + ": no column " + names[n];
            return false;
        }
    }
    out = ArmSeries{};
    size_t row = 1;
    double v[kColumns];
    while (std::getline(in, line)) {
        ++row;
        const std::vector<std::string> cells = SplitCsv(line);
        for (size_t n = 0; n < kColumns; ++n) {
            if (col[n] >= cells.size() || !ToDouble(cells[col[n]], v[n])) {
                error = csvPath + ": line " + std::to_string(row) + ": bad " + names[n];
                return false;
            }
        }
        out.day.push_back(v[0]);
        out.fccMah.push_back(v[1]);
        out.voltageV.push_back(v[2]);
        out.tempC.push_back(v[3]);
        out.charging.push_back(static_cast<int>(v[4]));
        out.vtermMv.push_back(static_cast<int>(v[5]));
        out.currentLimitMa.push_back(static_cast<int>(v[6]));
        out.socCapPct.push_back(v[7] > 0 ? static_cast<int>(v[8]) : 100);
        out.status.push_back(static_cast<int>(v[9]));
        out.baspLevel.push_back(static_cast<int>(v[10]));
        out.aswScene.push_back(static_cast<int>(v[11]));
        out.swellTotal.push_back(v[12]);
    }
    return true;
}

ArmFigures ComputeFigures(const ArmSeries& s, bool withDaemon) {
    ArmFigures f;
    if (s.Size() == 0) {
        return f;
    }
    const size_t last = s.Size() - 1;
    f.days = s.day[last] - s.day[0];
    f.fccStartMah = s.fccMah[0];
    f.fccEndMah = s.fccMah[last];
    f.capacityEndPct = f.fccStartMah > 0 ? 100.0 * f.fccEndMah / f.fccStartMah : NAN;
    f.capacity1yPct = CapacityAt(s, 365.0);
    f.capacity2yPct = CapacityAt(s, 730.0);
    double chargingHours = 0;
    for (size_t i = 0; i < last; ++i) {
        // Each row stands for the time until the next one.
        const double hours = (s.day[i + 1] - s.day[i]) * 24.0;
        chargingHours += s.charging[i] != 0 ? hours : 0.0;
        int vb = -1;
        for (int b = 0; b < kVoltBands; ++b) {
            vb = s.voltageV[i] >= kVoltBandsV[b] ? b : vb;
        }
        if (vb >= 0) {
            const int tb = s.tempC[i] < kTempBandsC[0] ? 0 : s.tempC[i] < kTempBandsC[1] ? 1 : 2;
            f.exposureHours[vb][tb] += hours;
        }
        if (s.voltageV[i] >= 4.30) {
            f.hoursHighVoltage += hours;
            f.hoursHighVoltageHot += s.tempC[i] >= 35.0 ? hours : 0.0;
        }
    }
    f.chargingHoursPerDay = f.days > 0 ? chargingHours / f.days : 0.0;
    for (size_t i = 0; i <= last; ++i) {
        if (i > 0 &&
            (s.vtermMv[i] != s.vtermMv[i - 1] || s.currentLimitMa[i] != s.currentLimitMa[i - 1] ||
             s.socCapPct[i] != s.socCapPct[i - 1] ||
             (s.status[i] >= 1) != (s.status[i - 1] >= 1))) {
            ++f.limitChanges;
        }
        if (s.baspLevel[i] >= 1 && f.baspLevelDay.count(s.baspLevel[i]) == 0) {
            f.baspLevelDay[s.baspLevel[i]] = s.day[i];
        }
        if (s.aswScene[i] >= 1 && f.aswSceneDay.count(s.aswScene[i]) == 0) {
            f.aswSceneDay[s.aswScene[i]] = s.day[i];
        }
    }
    if (withDaemon) {
        f.swellEnd = s.swellTotal[last];
    }
    return f;
}

std::vector<NamedFigure> SummaryFigures(const ArmFigures& f) {
    return {
        {"capacity_end_pct", "capacity at the end, % of start", f.capacityEndPct},
        {"capacity_1y_pct", "capacity at 1 year, %", f.capacity1yPct},
        {"capacity_2y_pct", "capacity at 2 years, %", f.capacity2yPct},
        {"charging_h_per_day", "hours charging per day", f.chargingHoursPerDay},
        {"limit_changes", "limit changes the user sees", static_cast<double>(f.limitChanges)},
        {"hours_ge_4v30", "hours at or above 4.30 V", f.hoursHighVoltage},
        {"hours_ge_4v30_hot", "hours at or above 4.30 V and 35 degC", f.hoursHighVoltageHot},
        {"swell_end", "estimated swelling at the end", f.swellEnd},
    };
}

}  // namespace sim
