// `quenctl inspect`: decodes every record under a root and prints it as text or JSON, and
// optionally draws the history with gnuplot.
#pragma once

#include <string>

namespace Inspect {

struct Options {
    std::string root;     // device root or pulled directory
    bool json = false;    // JSON instead of text
    std::string plotDir;  // where to draw the plots; "" for none
};

// Runs the inspection, printing to standard output (errors to standard error). Exit status:
// 0 when the root could be read (damaged records are reported in the output, not by the
// status); 2 when the root is not a readable directory, or the plots were asked for and
// gnuplot is missing or fails.
int Run(const Options& options);

}  // namespace Inspect
