#include "views/svg_plot.h"

#include "base/text.h"
#include "views/html_parts.h"

#include <algorithm>
#include <cmath>
#include <functional>

namespace tool {
namespace {

// Units of the drawing; on a wide screen about a pixel each.
constexpr double kWidth = 560;
constexpr double kHeight = 210;
constexpr double kLeft = 52;
constexpr double kRight = 22;
constexpr double kTop = 32;
constexpr double kBottom = 26;
constexpr double kInnerWidth = kWidth - kLeft - kRight;
constexpr double kInnerHeight = kHeight - kTop - kBottom;
constexpr double kBarGap = 0.15; // of a bar's width
constexpr int kValueTicks = 4;   // about
constexpr int kTimeTicks = 7;

struct Unit {
    double from = 0; // used for values of at least so much
    double factor = 1;
    const char *name = "";
};

struct UnitsOfMeasure {
    Measure measure;
    double least;            // the axis reaches at least up to it
    std::vector<Unit> units; // the smallest first
};

const UnitsOfMeasure &UnitsOf(Measure measure) {
    static const UnitsOfMeasure kTable[] = {
        {Measure::kBitRate, 1000, {{0, 1e-3, "kbit/s"}, {1e6, 1e-6, "Mbit/s"}}},
        {Measure::kPercent, 1, {{0, 1, "%"}}},
        {Measure::kMilliseconds, 1, {{0, 1, "ms"}, {10000, 1e-3, "s"}}},
        {Measure::kPackets, 4, {{0, 1, "packets"}}},
    };
    return *std::find_if(std::begin(kTable), std::end(kTable),
                         [measure](const UnitsOfMeasure &row) { return row.measure == measure; });
}

const Unit &UnitFor(Measure measure, double value) {
    const std::vector<Unit> &units = UnitsOf(measure).units;
    const Unit *chosen = &units.front();
    for (const Unit &unit : units)
        if (value >= unit.from) chosen = &unit;
    return *chosen;
}

// Of a tick: as short as it can be.
std::string Number(double value) { return Formatted("%g", value); }

// Of something measured: three places or so, none that says nothing.
std::string Measured(double value) {
    const double scale = value < 10 ? 100 : value < 100 ? 10 : 1;
    return Formatted("%.10g", std::round(value * scale) / scale);
}

// A coordinate.
std::string At(double value) { return Formatted("%.1f", value); }

// 1, 2, 2.5 or 5 times a power of ten.
double NiceStep(double least) {
    const double power = std::pow(10, std::floor(std::log10(least)));
    for (const double factor : {1.0, 2.0, 2.5, 5.0})
        if (factor * power >= least * (1 - 1e-9)) return factor * power;
    return 10 * power;
}

double NiceSeconds(double least) {
    for (const double step : {1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 14400, 21600, 43200})
        if (step >= least) return step;
    return 86400 * std::ceil(least / 86400);
}

std::string TimeLabel(double seconds) { return ElapsedText(std::chrono::nanoseconds(std::llround(seconds * 1e9))); }

// From data to drawing.
class Frame {
public:
    explicit Frame(const Plot &plot) : seconds_(std::max(plot.seconds, 1.0)) {
        double highest = UnitsOf(plot.measure).least;
        for (const PlotPoint &point : plot.points)
            highest = std::max({highest, point.value.value_or(0), point.peak.value_or(0)});
        unit_ = UnitFor(plot.measure, highest);
        step_ = NiceStep(highest * unit_.factor / kValueTicks) / unit_.factor;
        if (plot.measure == Measure::kPackets) step_ = std::max(step_, 1.0);
        top_ = step_ * std::ceil(highest / step_ - 1e-9);
    }
    double X(double seconds) const { return kLeft + kInnerWidth * std::min(seconds / seconds_, 1.0); }
    double Y(double value) const { return kTop + kInnerHeight * (1 - value / top_); }
    const char *UnitName() const { return unit_.name; }

    std::string Axes() const {
        std::string text;
        for (int i = 0; i * step_ <= top_ * (1 + 1e-9); ++i) {
            const std::string y = At(Y(i * step_));
            text += "<line class=\"" + std::string(i == 0 ? "base" : "grid") + "\" x1=\"" + At(kLeft) + "\" x2=\"" +
                    At(kWidth - kRight) + "\" y1=\"" + y + "\" y2=\"" + y + "\"/>";
            text += "<text class=\"value\" x=\"" + At(kLeft - 7) + "\" y=\"" + At(Y(i * step_) + 4) + "\">" +
                    Number(i * step_ * unit_.factor) + "</text>";
        }
        return text + TimeAxis();
    }

private:
    std::string TimeAxis() const {
        std::string text;
        const double step = NiceSeconds(seconds_ / kTimeTicks);
        for (int i = 0; i * step <= seconds_; ++i) {
            const std::string x = At(X(i * step));
            text += "<line class=\"tick\" x1=\"" + x + "\" x2=\"" + x + "\" y1=\"" + At(kTop + kInnerHeight) +
                    "\" y2=\"" + At(kTop + kInnerHeight + 4) + "\"/><text class=\"time\" x=\"" + x + "\" y=\"" +
                    At(kHeight - 6) + "\">" + TimeLabel(i * step) + "</text>";
        }
        return text;
    }

    const double seconds_;
    double step_ = 1; // between ticks
    double top_ = 1;  // of the value axis
    Unit unit_;
};

std::string Rectangle(const char *className, double x, double y, double width, double height) {
    return "<rect class=\"" + std::string(className) + "\" x=\"" + At(x) + "\" y=\"" + At(y) + "\" width=\"" +
           At(width) + "\" height=\"" + At(height) + "\"";
}

std::string Shades(const Plot &plot, const Frame &frame) {
    std::string text;
    for (const PlotPoint &point : plot.points)
        if (point.marked)
            text += Rectangle("shade", frame.X(point.begin), kTop, frame.X(point.end) - frame.X(point.begin),
                              kInnerHeight) +
                    "/>";
    return text;
}

std::string Bars(const Plot &plot, const Frame &frame) {
    std::string text;
    for (const PlotPoint &point : plot.points) {
        if (point.value.value_or(0) <= 0) continue;
        const double width = frame.X(point.end) - frame.X(point.begin);
        text += Rectangle("bar", frame.X(point.begin) + kBarGap / 2 * width, frame.Y(*point.value),
                          width * (1 - kBarGap), frame.Y(0) - frame.Y(*point.value)) +
                "/>";
    }
    return text;
}

using ValueOf = std::function<std::optional<double>(const PlotPoint &)>;

// The points that follow one another without a gap, as a polyline, or down to the axis as an area.
std::string Runs(const Plot &plot, const Frame &frame, const ValueOf &valueOf, const char *className, bool area) {
    std::string text;
    std::string path;
    double first = 0;
    double last = 0;
    const auto end = [&] {
        if (path.empty()) return;
        if (area) path += "L" + At(last) + " " + At(frame.Y(0)) + "L" + At(first) + " " + At(frame.Y(0)) + "Z";
        text += "<path class=\"" + std::string(className) + "\" d=\"" + path + "\"/>";
        path.clear();
    };
    for (const PlotPoint &point : plot.points) {
        const std::optional<double> value = valueOf(point);
        if (!value) {
            end();
            continue;
        }
        last = frame.X((point.begin + point.end) / 2);
        if (path.empty()) first = last;
        path += (path.empty() ? "M" : "L") + At(last) + " " + At(frame.Y(*value));
    }
    end();
    return text;
}

std::string Hints(const Plot &plot, const Frame &frame) {
    std::string text;
    for (const PlotPoint &point : plot.points) {
        std::string hint = TimeLabel(point.begin) + " to " + TimeLabel(point.end) + ": ";
        hint += point.value ? MeasureText(plot.measure, *point.value) : "nothing";
        if (point.value && !plot.valueName.empty()) hint += " " + plot.valueName;
        if (point.peak) hint += ", " + MeasureText(plot.measure, *point.peak) + " " + plot.peakName;
        if (point.marked) hint += " (interrupted)";
        text +=
            Rectangle("hint", frame.X(point.begin), kTop, frame.X(point.end) - frame.X(point.begin), kInnerHeight) +
            "><title>" + Escaped(hint) + "</title></rect>";
    }
    return text;
}

} // namespace

std::string SvgPlot(const Plot &plot) {
    const Frame frame(plot);
    const auto value = [](const PlotPoint &point) { return point.value; };
    const auto peak = [](const PlotPoint &point) { return point.peak; };
    std::string text = "<svg viewBox=\"0 0 " + Number(kWidth) + " " + Number(kHeight) +
                       "\" role=\"img\" aria-label=\"" + Escaped(plot.title) + "\">";
    text += "<text class=\"title\" x=\"0\" y=\"14\">" + Escaped(plot.title) + " <tspan class=\"unit\">" +
            frame.UnitName() + "</tspan></text><text class=\"note\" x=\"" + At(kWidth - kRight) + "\" y=\"14\">" +
            Escaped(plot.note) + "</text>";
    text += Shades(plot, frame) + frame.Axes();
    if (plot.bars)
        text += Bars(plot, frame);
    else
        text += Runs(plot, frame, peak, "peak", true) + Runs(plot, frame, value, "area", true) +
                Runs(plot, frame, value, "curve", false);
    return text + Hints(plot, frame) + "</svg>\n";
}

std::string MeasureText(Measure measure, double value) {
    const Unit &unit = UnitFor(measure, value);
    return Measured(value * unit.factor) + " " + unit.name;
}

std::string RangeText(Measure measure, double least, double most) {
    const Unit &unit = UnitFor(measure, most);
    const std::string from = Measured(least * unit.factor);
    const std::string to = Measured(most * unit.factor);
    return (from == to ? "" : from + " to ") + to + " " + unit.name;
}

} // namespace tool
