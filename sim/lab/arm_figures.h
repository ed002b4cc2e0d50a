// What one arm's trace says, in the figures an engineer compares between arms: capacity over
// time, time at high voltage by temperature, the daemon's swelling estimate, the limits in
// force, and the days on which each aging level and anti-swelling scene began.
//
// Units: simulated days, hours, mAh, mV, mA, percent. Threads: plain values and functions.
#pragma once

#include <cmath>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace sim {

// The trace's columns the lab uses, one entry per row.
struct ArmSeries {
    std::vector<double> day;
    std::vector<double> fccMah;
    std::vector<double> voltageV;
    std::vector<double> tempC;
    std::vector<int> charging;
    std::vector<int> vtermMv;
    std::vector<int> currentLimitMa;
    std::vector<int> socCapPct;  // the SOC window's upper bound in force (100: none)
    std::vector<int> status;
    std::vector<int> baspLevel;
    std::vector<int> aswScene;
    std::vector<double> swellTotal;
    size_t Size() const { return day.size(); }
};

// Reads trace.csv (columns found by name). False with a message when the file or a needed
// column is missing or a row is malformed.
bool ReadTrace(const std::string& csvPath, ArmSeries& out, std::string& error);

// Voltage and temperature bands of the exposure table.
inline constexpr double kVoltBandsV[] = {4.20, 4.30, 4.40};  // lower bounds; the last is open
inline constexpr double kTempBandsC[] = {35.0, 45.0};        // below, between, at or above
inline constexpr int kVoltBands = 3;
inline constexpr int kTempBands = 3;

struct ArmFigures {
    double days = 0;
    double fccStartMah = 0;
    double fccEndMah = 0;
    double capacityEndPct = NAN;  // end capacity against the start, %
    double capacity1yPct = NAN;   // at day 365, % of the start; NaN when the run is shorter
    double capacity2yPct = NAN;   // at day 730
    double chargingHoursPerDay = 0;
    int limitChanges = 0;  // changes of the limits in force (voltage, current, SOC cap, stop)
    double hoursHighVoltage = 0;     // at or above 4.30 V
    double hoursHighVoltageHot = 0;  // at or above 4.30 V and 35 degC
    double exposureHours[kVoltBands][kTempBands] = {};
    double swellEnd = NAN;               // the daemon's estimate; NaN without the daemon
    std::map<int, double> baspLevelDay;  // first day at each level >= 1
    std::map<int, double> aswSceneDay;   // first day in each scene >= 1
};

// `withDaemon` false: no swelling estimate exists.
ArmFigures ComputeFigures(const ArmSeries& s, bool withDaemon);

// The figures that are single numbers, by key and label, for tables and fleet percentiles.
struct NamedFigure {
    const char* key;
    const char* label;
    double value;
};
std::vector<NamedFigure> SummaryFigures(const ArmFigures& f);

}  // namespace sim
