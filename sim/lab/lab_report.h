// The lab's report: one self-contained HTML page (inline SVG, inline style, no script and no
// external file) that puts the arms side by side: a summary table, plots of capacity, limits
// in force, swelling and levels over time, the time at high voltage by temperature, the days
// each aging level and anti-swelling scene began, and the arms' configurations and user
// profiles.
//
// Threads: the caller's; reads the arms' result folders.
#pragma once

#include <string>
#include <vector>

#include "sim/lab/arm_figures.h"
#include "sim/runner/arm.h"

namespace sim {

struct LabArm {
    ArmPlan plan;
    int exitCode = -1;  // RunArm's result; -1: never ran
    RunSummary summary;
    ArmSeries series;
    ArmFigures figures;
    bool haveTrace = false;
    std::string error;        // why there is no trace or summary
    std::string profileText;  // the profile's model parameters (JSON), "" for the scenario's
};

// Loads each arm's summary.json and trace.csv from its folder and computes its figures; an
// arm whose results are missing keeps its error.
void LoadArmResults(std::vector<LabArm>& arms);

// Writes `path`. False with a message when it cannot be written.
bool WriteLabReport(const std::string& path, const std::string& title,
                    const std::vector<LabArm>& arms, std::string& error);

}  // namespace sim
