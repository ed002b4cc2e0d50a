#include "sim/lab/svg_plot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace sim {
namespace {

constexpr double kWidth = 960, kHeight = 300;
constexpr double kLeft = 70, kRight = 260, kTop = 30, kBottom = 45;
const char* const kColours[] = {"#1f77b4", "#d62728", "#2ca02c", "#ff7f0e", "#9467bd",
                                "#8c564b", "#e377c2", "#17becf", "#7f7f7f", "#bcbd22"};

std::string Num(double v) {
    char buf[32];
    snprintf(buf, sizeof(buf), "%.1f", v);
    return buf;
}

std::string TickLabel(double v) {
    char buf[32];
    snprintf(buf, sizeof(buf), "%g", std::fabs(v) < 1e-9 ? 0.0 : v);
    return buf;
}

}  // namespace

std::string HtmlEscape(const std::string& text) {
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
            case '\'':
                out += "&#39;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::vector<double> NiceTicks(double lo, double hi, int count) {
    std::vector<double> ticks;
    if (!(hi > lo) || !std::isfinite(lo) || !std::isfinite(hi) || count < 1) {
        return ticks;
    }
    const double raw = (hi - lo) / count;
    const double mag = std::pow(10.0, std::floor(std::log10(raw)));
    double step = mag;
    for (double m : {1.0, 2.0, 5.0, 10.0}) {
        step = m * mag;
        if (step >= raw) {
            break;
        }
    }
    for (double t = std::ceil(lo / step) * step; t <= hi + step * 1e-9; t += step) {
        ticks.push_back(t);
    }
    return ticks;
}

std::string RenderSvgPlot(const PlotSpec& plot) {
    double x0 = INFINITY, x1 = -INFINITY, y0 = INFINITY, y1 = -INFINITY;
    for (const PlotSeries& s : plot.series) {
        for (size_t i = 0; i < std::min(s.x.size(), s.y.size()); ++i) {
            if (std::isfinite(s.x[i]) && std::isfinite(s.y[i])) {
                x0 = std::min(x0, s.x[i]);
                x1 = std::max(x1, s.x[i]);
                y0 = std::min(y0, s.y[i]);
                y1 = std::max(y1, s.y[i]);
            }
        }
    }
    if (!(x0 <= x1)) {  // nothing to draw: a unit frame
        x0 = 0, x1 = 1, y0 = 0, y1 = 1;
    }
    if (x1 - x0 < 1e-9) {
        x1 = x0 + 1;
    }
    if (y1 - y0 < 1e-9 * std::max(1.0, std::fabs(y0))) {  // flat: give it room
        const double pad = std::max(1.0, std::fabs(y0) * 0.01);
        y0 -= pad, y1 += pad;
    } else {
        const double pad = (y1 - y0) * 0.05;
        y0 -= pad, y1 += pad;
    }
    const double pw = kWidth - kLeft - kRight, ph = kHeight - kTop - kBottom;
    auto px = [&](double x) { return kLeft + (x - x0) / (x1 - x0) * pw; };
    auto py = [&](double y) { return kTop + (1.0 - (y - y0) / (y1 - y0)) * ph; };

    std::string svg = "<svg id='" + HtmlEscape(plot.id) +
                      "' class='plot' xmlns='http://www.w3.org/2000/svg' viewBox='0 0 " +
                      Num(kWidth) + " " + Num(kHeight) + "' role='img'>\n";
    svg += "<title>" + HtmlEscape(plot.title) + "</title>\n";
    svg +=
        "<text x='" + Num(kLeft) + "' y='18' class='title'>" + HtmlEscape(plot.title) + "</text>\n";
    svg += "<rect x='" + Num(kLeft) + "' y='" + Num(kTop) + "' width='" + Num(pw) + "' height='" +
           Num(ph) + "' class='frame'/>\n";
    for (double t : NiceTicks(x0, x1, 8)) {
        svg += "<line x1='" + Num(px(t)) + "' x2='" + Num(px(t)) + "' y1='" + Num(kTop) + "' y2='" +
               Num(kTop + ph) + "' class='grid'/><text x='" + Num(px(t)) + "' y='" +
               Num(kTop + ph + 16) + "' class='xt'>" + TickLabel(t) + "</text>\n";
    }
    for (double t : NiceTicks(y0, y1, 5)) {
        svg += "<line x1='" + Num(kLeft) + "' x2='" + Num(kLeft + pw) + "' y1='" + Num(py(t)) +
               "' y2='" + Num(py(t)) + "' class='grid'/><text x='" + Num(kLeft - 6) + "' y='" +
               Num(py(t) + 4) + "' class='yt'>" + TickLabel(t) + "</text>\n";
    }
    svg += "<text x='" + Num(kLeft + pw / 2) + "' y='" + Num(kHeight - 6) + "' class='xl'>" +
           HtmlEscape(plot.xLabel) + "</text>\n";
    svg += "<text transform='translate(14," + Num(kTop + ph / 2) + ") rotate(-90)' class='yl'>" +
           HtmlEscape(plot.yLabel) + "</text>\n";

    size_t n = 0;
    for (const PlotSeries& s : plot.series) {
        const size_t palette = s.colour >= 0 ? static_cast<size_t>(s.colour) : n;
        const char* colour = kColours[palette % (sizeof(kColours) / sizeof(kColours[0]))];
        const size_t count = std::min(s.x.size(), s.y.size());
        const size_t stride = std::max<size_t>(1, (count + kMaxPoints - 1) / kMaxPoints);
        std::string d;
        bool pen = false;
        double lastY = 0;
        std::vector<size_t> points;
        for (size_t i = 0; i < count; i += stride) {
            points.push_back(i);
        }
        if (count > 0 && points.back() != count - 1) {
            points.push_back(count - 1);
        }
        for (size_t i : points) {
            if (!std::isfinite(s.x[i]) || !std::isfinite(s.y[i])) {
                pen = false;
                continue;
            }
            if (pen && s.steps) {
                d += "L" + Num(px(s.x[i])) + " " + Num(py(lastY));
            }
            d += (pen ? "L" : "M") + Num(px(s.x[i])) + " " + Num(py(s.y[i]));
            pen = true;
            lastY = s.y[i];
        }
        if (!d.empty()) {
            svg += "<path class='series' fill='none' stroke='" + std::string(colour) +
                   "' stroke-width='1.8'" +
                   (s.dashed ? std::string(" stroke-dasharray='6 3'") : "") + " d='" + d +
                   "'><title>" + HtmlEscape(s.label) + "</title></path>\n";
        }
        const double ly = kTop + 12 + 18.0 * static_cast<double>(n);
        svg += "<line x1='" + Num(kLeft + pw + 12) + "' x2='" + Num(kLeft + pw + 32) + "' y1='" +
               Num(ly) + "' y2='" + Num(ly) + "' stroke='" + colour + "' stroke-width='3'" +
               (s.dashed ? " stroke-dasharray='6 3'" : "") + "/><text x='" + Num(kLeft + pw + 38) +
               "' y='" + Num(ly + 4) + "' class='legend'>" + HtmlEscape(s.label) + "</text>\n";
        ++n;
    }
    svg += "</svg>\n";
    return svg;
}

}  // namespace sim
