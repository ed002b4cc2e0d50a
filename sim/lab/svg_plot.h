// A small inline SVG line plot: one path per series over shared axes, with ticks, labels and
// a legend, so that a report is one self-contained page. Series with many points are thinned
// to at most kMaxPoints (keeping each stride's first point and the last one); NaN points
// break the line.
//
// Threads: plain values and functions.
#pragma once

#include <string>
#include <vector>

namespace sim {

struct PlotSeries {
    std::string label;
    std::vector<double> x;
    std::vector<double> y;
    bool steps = false;   // draw as a staircase (values that hold until the next sample)
    int colour = -1;      // palette index, so that an arm keeps its colour; -1: by position
    bool dashed = false;  // e.g. a baseline, so that a series drawn over it stays visible
};

struct PlotSpec {
    std::string id;  // element id, [a-z0-9-]+
    std::string title;
    std::string xLabel;
    std::string yLabel;
    std::vector<PlotSeries> series;
};

inline constexpr size_t kMaxPoints = 1500;

// The <svg> element. A series without a finite point draws nothing but keeps its legend.
std::string RenderSvgPlot(const PlotSpec& plot);

// Text escaped for HTML element content and attribute values.
std::string HtmlEscape(const std::string& text);

// "Nice" axis tick positions covering [lo, hi], about `count` of them.
std::vector<double> NiceTicks(double lo, double hi, int count);

}  // namespace sim
