// Plots over time as SVG text, to stand inside a page: the page's style gives them their colours.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tool {

// What is measured; plots choose the size of the unit themselves.
enum class Measure { kBitRate, kPercent, kMilliseconds, kPackets };

struct PlotPoint {
    double begin = 0; // seconds
    double end = 0;
    std::optional<double> value; // none: a gap in the line
    std::optional<double> peak;  // drawn as an area behind the line
    bool marked = false;         // the stretch is shaded
};

struct Plot {
    std::string title;
    std::string note;      // at the right of the title
    std::string valueName; // "average", for the pointer's hint
    std::string peakName;  // "longest"
    Measure measure = Measure::kPackets;
    bool bars = false;  // instead of a line
    double seconds = 0; // length of the time axis
    std::vector<PlotPoint> points;
};

std::string SvgPlot(const Plot &plot);

// "1.5 Mbit/s", "12 ms": as on the axes.
std::string MeasureText(Measure measure, double value);
std::string RangeText(Measure measure, double least, double most);

} // namespace tool
