// Plots of the recorded history, drawn by gnuplot (the plotting tool the simulator uses too):
//   basp_<battery>.svg  learned FCC over time and the days spent at each aging level
//   asw_<battery>.svg   swell per day (charger-connected share per day when the swell table
//                       is unknown)
//   cvt.svg             measured and temperature-corrected constant-voltage times over time
//   acr.svg, dcr.svg    AC / DC resistance (and R0) over time
//   eis.svg             impedance history: magnitude over cycles, per frequency
// For each plot a data file (<stem>*.dat) and a script (<stem>.gp) are written into the plot
// directory, and gnuplot runs there on the script, so the plot can be redrawn or restyled by
// hand. Records without anything to draw get no plot. Times on the axes are UTC.
//
// No shared state; runs gnuplot as a child process and waits for it.
#pragma once

#include <string>
#include <vector>

#include "tools/records/records_record.h"

namespace Inspect {

// The gnuplot executable found on $PATH, or "" when there is none.
std::string FindGnuplot();

// Writes and draws the plots of `records` into `dir` (created when missing) with `gnuplot`.
// The pictures made are added to `made` (file names inside `dir`). False, with the reason in
// `error`, when the directory or a file cannot be written or gnuplot fails.
bool WritePlots(const std::vector<InspectedRecord>& records, const std::string& dir,
                const std::string& gnuplot, std::vector<std::string>& made, std::string& error);

}  // namespace Inspect
