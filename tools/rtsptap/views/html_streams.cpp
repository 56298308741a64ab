#include "views/html_streams.h"

#include "base/text.h"
#include "views/html_parts.h"
#include "views/svg_plot.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

namespace tool {
namespace {

constexpr int kHues = 4; // colours that streams take in turn, in the style

std::string JitterTile(const char *name, const std::optional<double> &jitter) {
    return Tile(name, jitter ? MeasureText(Measure::kMilliseconds, *jitter) : "–");
}

std::string StreamTiles(const StreamStatistics &statistics) {
    const double gap = std::chrono::duration<double, std::milli>(statistics.LongestGap()).count();
    std::string text = "<section class=\"tiles\">\n";
    text += Tile("Packets", std::to_string(statistics.Packets()));
    text += Tile("Bit rate", MeasureText(Measure::kBitRate, statistics.BitsPerSecond()));
    text += LossTile(statistics.Lost(), statistics.Expected());
    text += Tile("Reordered", std::to_string(statistics.Reordered()));
    text += Tile("Duplicates", std::to_string(statistics.Duplicates()));
    text += JitterTile("Jitter, average", statistics.MeanJitterMs());
    text += JitterTile("Jitter, highest", statistics.MaxJitterMs());
    text += Tile("Longest gap", MeasureText(Measure::kMilliseconds, gap));
    text += Tile("Without media", TimeText(statistics.WithoutMedia()), statistics.Outages() > 0 ? "bad" : "");
    return text + "</section>\n";
}

// What the plots show, in their order.
struct PlotKind {
    const char *title;
    Measure measure;
    bool bars;
    const char *valueName;
    std::optional<double> (*value)(const SeriesPoint &);
    const char *peakName;
    std::optional<double> (*peak)(const SeriesPoint &);
};

std::optional<double> Rate(const SeriesPoint &point) { return BitsPerSecond(point); }
std::optional<double> Jitter(const SeriesPoint &point) { return point.jitterMs; }
std::optional<double> HighestJitter(const SeriesPoint &point) {
    return point.jitterMs ? std::optional(point.highestJitterMs) : std::nullopt;
}
std::optional<double> Queue(const SeriesPoint &point) { return point.queued; }
std::optional<double> LongestGap(const SeriesPoint &point) {
    return point.packets > 0 ? std::optional(point.longestGapMs) : std::nullopt;
}
std::optional<double> None(const SeriesPoint &) { return std::nullopt; }

constexpr PlotKind kPlots[] = {
    {"Bit rate", Measure::kBitRate, false, "", Rate, "", None},
    {"Loss", Measure::kPercent, true, "lost", LossPercent, "", None},
    {"Jitter", Measure::kMilliseconds, false, "on average", Jitter, "at most", HighestJitter},
    {"Time between packets", Measure::kMilliseconds, false, "on average", MeanGapMs, "at most", LongestGap},
    {"Packets in the queue", Measure::kPackets, false, "", Queue, "", None},
};

// "0 to 1.6 Mbit/s"
std::string RangeOf(const Plot &plot) {
    bool any = false;
    double least = 0;
    double most = 0;
    for (const PlotPoint &point : plot.points) {
        if (!point.value) continue;
        const double high = std::max(*point.value, point.peak.value_or(0));
        least = any ? std::min(least, *point.value) : *point.value;
        most = any ? std::max(most, high) : high;
        any = true;
    }
    if (!any) return "nothing arrived";
    if (plot.bars) return most > 0 ? "at most " + MeasureText(plot.measure, most) : "none";
    return RangeText(plot.measure, least, most);
}

std::string DrawPlot(const PlotKind &kind, const std::vector<SeriesPoint> &series, double seconds) {
    Plot plot{kind.title, "", kind.valueName, kind.peakName, kind.measure, kind.bars, seconds, {}};
    for (const SeriesPoint &point : series)
        plot.points.push_back({point.begin, point.end, kind.value(point), kind.peak(point), point.disturbed});
    plot.note = RangeOf(plot);
    return "<figure>" + SvgPlot(plot) + "</figure>\n";
}

std::string TimeAfterPlay(const char *what, const FromPlay &time) {
    return time ? std::string(", ") + what + " " + TimeText(*time) + " after PLAY" : "";
}

std::string DescriptionOf(const StreamStatistics &statistics, const ProbedStream &probed) {
    std::string text = Headline(probed) + ", payload type " + std::to_string(probed.payloadType);
    if (!probed.control.empty()) text += ", control " + probed.control;
    text +=
        TimeAfterPlay("first packet", probed.firstPacket) + TimeAfterPlay("first key frame", probed.firstKeyFrame);
    char ssrc[32];
    std::snprintf(ssrc, sizeof ssrc, ", SSRC 0x%08" PRIx32, statistics.Ssrc());
    if (statistics.Packets() > 0) text += ssrc;
    return text + (probed.parameters.empty() ? "" : ", parameters " + probed.parameters);
}

} // namespace

std::string StreamSection(const StreamObservation &stream, const ProbedStream *probed,
                          const std::vector<SeriesPoint> &series) {
    const double seconds = series.empty() ? 0 : series.back().end;
    std::string text =
        "<section class=\"stream hue" + std::to_string((stream.stream.number - 1) % kHues) +
        "\">\n<h2><i></i>Stream " + std::to_string(stream.stream.number) + ": " + Escaped(stream.stream.codec) +
        "</h2>\n" +
        Tagged("p class=\"muted\"", probed == nullptr ? "" : DescriptionOf(stream.statistics, *probed)) + "\n" +
        StreamTiles(stream.statistics) + "<div class=\"plots\">\n";
    for (const PlotKind &kind : kPlots) text += DrawPlot(kind, series, seconds);
    return text + "</div></section>\n";
}

} // namespace tool
