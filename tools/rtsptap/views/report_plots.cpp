// The plots of the report's page.
#include "base/text.h"
#include "views/report_page.h"

#include <algorithm>
#include <cmath>

namespace tool {
namespace {

// Units of the drawing; on a wide screen about a pixel each.
constexpr double kWidth = 560;
constexpr double kHeight = 210;
constexpr double kLeft = 52;
constexpr double kTop = 32;
constexpr double kRightEnd = kWidth - 22;
constexpr double kBottom = kHeight - 26;
constexpr double kBarGap = 0.15; // of a bar's width
constexpr int kValueTicks = 4;   // about
constexpr int kTimeTicks = 7;
constexpr double kRounding = 1e-9;

struct Unit {
    double factor;
    const char *name;
};

// By Measure.
constexpr struct {
    double least; // the axis reaches at least up to it
    Unit unit;
    double large; // from here on the other unit
    Unit largeUnit;
} kScales[] = {
    {1000, {1e-3, "kbit/s"}, 1e6, {1e-6, "Mbit/s"}},
    {1, {1, "%"}, HUGE_VAL, {}},
    {1, {1, "ms"}, 10000, {1e-3, "s"}},
    {4, {1, "packets"}, HUGE_VAL, {}},
};

const Unit &UnitFor(Measure measure, double value) {
    const auto &scale = kScales[static_cast<int>(measure)];
    return value >= scale.large ? scale.largeUnit : scale.unit;
}

using Value = std::optional<double>;

struct PlotKind {
    const char *title;
    Measure measure;
    bool bars;                           // instead of a line
    Value (*value)(const SeriesPoint &); // none: a gap in the line
    Value (*peak)(const SeriesPoint &);  // drawn as an area behind the line; null: none is
    const char *valueName;               // for the pointer's hint, as the next
    const char *peakName;
};

Value BitRate(const SeriesPoint &point) { return static_cast<double>(point.bytes) * 8 / (point.end - point.begin); }

Value LossPercent(const SeriesPoint &point) {
    const uint64_t expected = point.packets - point.duplicates + point.lost;
    if (expected == 0) return std::nullopt;
    return 100 * static_cast<double>(point.lost) / static_cast<double>(expected);
}

Value Jitter(const SeriesPoint &point) { return point.jitterMs; }

Value HighestJitter(const SeriesPoint &point) {
    return point.jitterMs ? Value(point.highestJitterMs) : std::nullopt;
}

Value MeanGap(const SeriesPoint &point) {
    if (point.packets == 0) return std::nullopt;
    return (point.end - point.begin) * 1000 / static_cast<double>(point.packets);
}

Value LongestGap(const SeriesPoint &point) { return point.packets > 0 ? Value(point.longestGapMs) : std::nullopt; }

Value Queue(const SeriesPoint &point) { return point.queued; }

constexpr PlotKind kPlots[] = {
    {"Bit rate", Measure::kBitRate, false, BitRate, nullptr, "", ""},
    {"Loss", Measure::kPercent, true, LossPercent, nullptr, " lost", ""},
    {"Jitter", Measure::kMilliseconds, false, Jitter, HighestJitter, " on average", " at most"},
    {"Time between packets", Measure::kMilliseconds, false, MeanGap, LongestGap, " on average", " at most"},
    {"Packets in the queue", Measure::kPackets, false, Queue, nullptr, "", ""},
};

Value PeakOf(const PlotKind &kind, const SeriesPoint &point) {
    return kind.peak != nullptr ? kind.peak(point) : std::nullopt;
}

// Three places or so, none that says nothing.
std::string Measured(double value) {
    const double scale = value < 10 ? 100 : value < 100 ? 10 : 1;
    return Formatted("%.10g", std::round(value * scale) / scale);
}

// 1, 2, 2.5 or 5 times a power of ten.
double NiceStep(double least) {
    const double power = std::pow(10, std::floor(std::log10(least)));
    for (const double factor : {1.0, 2.0, 2.5, 5.0})
        if (factor * power >= least * (1 - kRounding)) return factor * power;
    return 10 * power;
}

double NiceSeconds(double least) {
    for (const double step : {1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 14400, 21600, 43200})
        if (step >= least) return step;
    return 86400 * std::ceil(least / 86400);
}

std::string TimeLabel(double seconds) { return ElapsedText(std::chrono::nanoseconds(std::llround(seconds * 1e9))); }

// A plot's axes: from data to drawing.
struct Axes {
    double seconds;
    double highest; // value
    Unit unit;
    double step; // between ticks
    double top;  // of the value axis

    double X(double time) const { return kLeft + (kRightEnd - kLeft) * std::min(time / seconds, 1.0); }
    double Y(double value) const { return kTop + (kBottom - kTop) * (1 - value / top); }
};

Axes AxesFor(const PlotKind &kind, const std::vector<SeriesPoint> &series) {
    Axes axes{};
    axes.seconds = std::max(series.empty() ? 0 : series.back().end, 1.0);
    axes.highest = kScales[static_cast<int>(kind.measure)].least;
    for (const SeriesPoint &point : series)
        axes.highest = std::max({axes.highest, kind.value(point).value_or(0), PeakOf(kind, point).value_or(0)});
    axes.unit = UnitFor(kind.measure, axes.highest);
    axes.step = NiceStep(axes.highest * axes.unit.factor / kValueTicks) / axes.unit.factor;
    if (kind.measure == Measure::kPackets) axes.step = std::max(axes.step, 1.0);
    axes.top = axes.step * std::ceil(axes.highest / axes.step - kRounding);
    return axes;
}

std::string DrawAxes(const Axes &axes) {
    std::string text;
    for (int i = 0; i * axes.step <= axes.top * (1 + kRounding); ++i) {
        const double y = axes.Y(i * axes.step);
        text += Formatted(R"(<line class="%s" x1="%.1f" x2="%.1f" y1="%.1f" y2="%.1f"/>)", i == 0 ? "base" : "grid",
                          kLeft, kRightEnd, y, y);
        text += Formatted(R"(<text class="value" x="%.1f" y="%.1f">%g</text>)", kLeft - 7, y + 4,
                          i * axes.step * axes.unit.factor);
    }
    const double step = NiceSeconds(axes.seconds / kTimeTicks);
    for (int i = 0; i * step <= axes.seconds; ++i) {
        const double x = axes.X(i * step);
        text += Formatted(R"(<line class="tick" x1="%.1f" x2="%.1f" y1="%.1f" y2="%.1f"/>)", x, x, kBottom,
                          kBottom + 4);
        text += Formatted(R"(<text class="time" x="%.1f" y="%.1f">%s</text>)", x, kHeight - 6,
                          TimeLabel(i * step).c_str());
    }
    return text;
}

// Without its end, so that something can go inside.
std::string Rectangle(const char *className, double x, double y, double width, double height) {
    return Formatted(R"(<rect class="%s" x="%.1f" y="%.1f" width="%.1f" height="%.1f")", className, x, y, width,
                     height);
}

// The whole height of a point.
std::string Column(const char *className, const Axes &axes, const SeriesPoint &point) {
    const double x = axes.X(point.begin);
    return Rectangle(className, x, kTop, axes.X(point.end) - x, kBottom - kTop);
}

std::string DrawBar(const Axes &axes, const SeriesPoint &point, double value) {
    const double x = axes.X(point.begin);
    const double width = axes.X(point.end) - x;
    return Rectangle("bar", x + kBarGap / 2 * width, axes.Y(value), width * (1 - kBarGap),
                     axes.Y(0) - axes.Y(value)) +
           "/>";
}

// The points that follow one another without a gap, as a line, or down to the axis as an area.
std::string DrawRuns(const Axes &axes, const std::vector<SeriesPoint> &series,
                     Value (*valueOf)(const SeriesPoint &), const char *className) {
    const bool isArea = std::string_view(className) != "curve";
    std::string text;
    std::string path;
    double first = 0;
    double last = 0;
    for (std::size_t i = 0; i <= series.size(); ++i) {
        const Value value = i < series.size() ? valueOf(series[i]) : std::nullopt;
        if (!value && !path.empty()) {
            if (isArea) path += Formatted("L%.1f %.1fL%.1f %.1fZ", last, axes.Y(0), first, axes.Y(0));
            text += Formatted(R"(<path class="%s" d="%s"/>)", className, path.c_str());
            path.clear();
        }
        if (!value) continue;
        last = axes.X((series[i].begin + series[i].end) / 2);
        if (path.empty()) first = last;
        path += Formatted("%s%.1f %.1f", path.empty() ? "M" : "L", last, axes.Y(*value));
    }
    return text;
}

std::string DrawHint(const PlotKind &kind, const Axes &axes, const SeriesPoint &point) {
    const Value value = kind.value(point);
    const Value peak = PeakOf(kind, point);
    std::string hint = TimeLabel(point.begin) + " to " + TimeLabel(point.end) + ": ";
    hint += value ? MeasureText(kind.measure, *value) + kind.valueName : "nothing";
    if (peak) hint += ", " + MeasureText(kind.measure, *peak) + kind.peakName;
    if (point.disturbed) hint += " (interrupted)";
    return Column("hint", axes, point) + "><title>" + hint + "</title></rect>";
}

// "0 to 1.6 Mbit/s"
std::string RangeText(const PlotKind &kind, const std::vector<SeriesPoint> &series) {
    Value least;
    Value most;
    for (const SeriesPoint &point : series) {
        const Value value = kind.value(point);
        if (!value) continue;
        least = std::min(*value, least.value_or(*value));
        most = std::max({*value, PeakOf(kind, point).value_or(0), most.value_or(*value)});
    }
    if (!most) return "nothing arrived";
    if (kind.bars) return *most > 0 ? "at most " + MeasureText(kind.measure, *most) : "none";
    const Unit &unit = UnitFor(kind.measure, *most);
    const std::string from = Measured(*least * unit.factor);
    const std::string to = Measured(*most * unit.factor);
    return (from == to ? "" : from + " to ") + to + " " + unit.name;
}

std::string DrawPlot(const PlotKind &kind, const std::vector<SeriesPoint> &series) {
    const Axes axes = AxesFor(kind, series);
    std::string text = Formatted(
        R"(<figure><svg viewBox="0 0 %g %g" role="img" aria-label="%s"><text class="title" x="0" y="14">%s )"
        R"(<tspan class="unit">%s</tspan></text><text class="note" x="%.1f" y="14">%s</text>)",
        kWidth, kHeight, kind.title, kind.title, axes.unit.name, kRightEnd, RangeText(kind, series).c_str());
    for (const SeriesPoint &point : series)
        if (point.disturbed) text += Column("shade", axes, point) + "/>";
    text += DrawAxes(axes);
    if (kind.bars) {
        for (const SeriesPoint &point : series)
            if (const Value value = kind.value(point); value.value_or(0) > 0) text += DrawBar(axes, point, *value);
    } else {
        if (kind.peak != nullptr) text += DrawRuns(axes, series, kind.peak, "peak");
        text += DrawRuns(axes, series, kind.value, "area") + DrawRuns(axes, series, kind.value, "curve");
    }
    for (const SeriesPoint &point : series) text += DrawHint(kind, axes, point);
    return text + "</svg>\n</figure>\n";
}

} // namespace

std::string MeasureText(Measure measure, double value) {
    const Unit &unit = UnitFor(measure, value);
    return Measured(value * unit.factor) + " " + unit.name;
}

std::string DrawPlots(const std::vector<SeriesPoint> &series) {
    std::string text;
    for (const PlotKind &kind : kPlots) text += DrawPlot(kind, series);
    return text;
}

} // namespace tool
