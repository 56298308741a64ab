#include "views/report_page.h"

#include "base/text.h"
#include "views/report_style.h"

#include <algorithm>
#include <cinttypes>

namespace tool {
namespace {

constexpr int kHues = 4; // colours that streams take in turn, in the style
constexpr const char *kDash = "–";

// Title, style, body.
constexpr const char *kPage = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
%s
<style>
%s</style>
</head>
<body>
<main>
%s<section class="muted">
<p><b>Loss</b>: packets missing from the sequence numbers. <b>Jitter</b>: how much earlier or later than their timestamps
say packets arrive, smoothed (RFC 3550, 6.4.1). Of jitter and <b>time between packets</b> the line is the average, the
area behind it the highest. <b>Without media</b>: all stretches of a second or more without a packet. <b>Queue</b>: packets
that have arrived and are not yet taken. <b>Shaded</b>: not playing.</p>
</section>
</main>
</body>
</html>
)";

// Text between tags or in an attribute; what cannot be shown is replaced.
std::string Escaped(const std::string &text) {
    static const std::map<char, const char *> kNames = {
        {'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'"', "&quot;"}, {'\'', "&#39;"}};
    std::string escaped;
    for (const char letter : text) {
        const auto named = kNames.find(letter);
        if (named != kNames.end())
            escaped += named->second;
        else if (static_cast<unsigned char>(letter) < ' ' || letter == 0x7F)
            escaped += "&#xFFFD;";
        else
            escaped += letter;
    }
    return escaped;
}

// <tag>text</tag>; the tag may have attributes.
std::string Tagged(const std::string &tag, const std::string &text) {
    return "<" + tag + ">" + Escaped(text) + "</" + tag.substr(0, tag.find(' ')) + ">";
}

std::string TaggedLine(const std::string &tag, const std::string &text) { return Tagged(tag, text) + "\n"; }

std::string OrDash(const std::string &text) { return text.empty() ? kDash : text; }

// A large value with its name; className: "good", "bad" or none.
std::string Tile(const std::string &name, const std::string &value, const char *className = "") {
    return Formatted("<div class=\"tile %s\">%s%s</div>\n", className, Tagged("span", name).c_str(),
                     Tagged("strong", value).c_str());
}

std::string LossTile(uint64_t lost, uint64_t expected) {
    if (expected == 0) return Tile("Lost", kDash);
    const double share = 100 * static_cast<double>(lost) / static_cast<double>(expected);
    return Tile("Lost", Formatted("%" PRIu64 " (%.2f\u00a0%%)", lost, share), lost > 0 ? "bad" : "good");
}

std::string JitterTile(const char *name, const std::optional<double> &jitter) {
    return Tile(name, jitter ? MeasureText(Measure::kMilliseconds, *jitter) : kDash);
}

std::string TransportTitle(const std::optional<Transport> &transport) {
    std::string title = transport ? TransportName(*transport) : kDash;
    std::transform(title.begin(), title.end(), title.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
    return title;
}

std::string Head(const ReportPage &page, const Observation &observation) {
    std::string text = "<header><h1>Reception report</h1>\n" + TaggedLine("p class=\"address\"", page.probed.url) +
                       Tagged("p class=\"muted\"", page.time) + "</header>\n";
    const std::string &verdict = page.probed.outcome.text;
    if (!verdict.empty()) text += TaggedLine("p class=\"verdict\"", verdict);
    for (const std::string &line : page.omissions) text += TaggedLine("p class=\"muted\"", line);
    uint64_t packets = 0;
    uint64_t expected = 0;
    uint64_t lost = 0;
    double bitsPerSecond = 0;
    for (const auto &[stream, statistics, ended] : observation.streams) {
        packets += statistics.Packets();
        expected += statistics.Expected();
        lost += statistics.Lost();
        bitsPerSecond += statistics.BitsPerSecond();
    }
    return text + "<section class=\"tiles\">\n" + Tile("Received for", ElapsedText(observation.elapsed)) +
           Tile("Packets", std::to_string(packets)) + LossTile(lost, expected) +
           Tile("Bit rate", MeasureText(Measure::kBitRate, bitsPerSecond)) +
           Tile("Reconnects", std::to_string(observation.reconnects), observation.reconnects > 0 ? "bad" : "") +
           Tile("Transport", TransportTitle(page.probed.transport)) + "</section>\n";
}

std::string ServerTable(const ServerFacts &facts) {
    const std::pair<const char *, std::string> rows[] = {
        {"Address", facts.address + ":" + std::to_string(facts.port)},
        {"Software", facts.software},
        {"Methods", facts.methods},
        {"Authentication", facts.authentication},
        {"Session time-out", facts.sessionTimeout ? std::to_string(facts.sessionTimeout->count()) + " s" : ""},
    };
    std::string text = "<div><h2>Server</h2>\n<table>\n";
    for (const auto &[name, value] : rows)
        text += "<tr>" + Tagged("th scope=\"row\"", name) + Tagged("td", OrDash(value)) + "</tr>\n";
    return text + "</table></div>\n";
}

std::string PhaseTable(const ProbeResult &probed) {
    const std::vector<Phase> phases = PhasesWithMedia(probed);
    double longest = 1;
    for (const Phase &phase : phases) longest = std::max(longest, static_cast<double>(phase.time.count()));
    std::string text = "<div><h2>Time of each step</h2>\n<table>\n";
    for (const Phase &phase : phases) {
        const auto time = static_cast<double>(phase.time.count());
        text +=
            "<tr>" + Tagged("th scope=\"row\"", phase.name) +
            Formatted("<td class=\"number\">%.1f ms</td>", time / 1000) +
            Formatted("<td class=\"length\"><div style=\"width:%.1f%%\"></div></td></tr>\n", 100 * time / longest);
    }
    return text + "</table></div>\n";
}

std::string EventTable(const EventLog &log) {
    std::string text = "<div class=\"events\"><h2>Events</h2>\n<table>\n";
    for (const Event &event : log.Events())
        text += "<tr>" + Tagged("td class=\"time\"", ElapsedText(event.at)) + Tagged("td", event.stream) +
                Tagged("td", event.what) + "</tr>\n";
    text += "</table>\n";
    if (log.Events().empty()) text += TaggedLine("p", "No loss, no gap of a second or more, no reconnection.");
    if (log.LeftOut() > 0) text += TaggedLine("p", "And " + std::to_string(log.LeftOut()) + " more.");
    return text + "</div>\n";
}

std::string StreamTiles(const StreamStatistics &statistics) {
    const double gap = std::chrono::duration<double, std::milli>(statistics.LongestGap()).count();
    return "<section class=\"tiles\">\n" + Tile("Packets", std::to_string(statistics.Packets())) +
           Tile("Bit rate", MeasureText(Measure::kBitRate, statistics.BitsPerSecond())) +
           LossTile(statistics.Lost(), statistics.Expected()) +
           Tile("Reordered", std::to_string(statistics.Reordered())) +
           Tile("Duplicates", std::to_string(statistics.Duplicates())) +
           Tile("Dropped by the kernel", std::to_string(statistics.DroppedByKernel()),
                statistics.DroppedByKernel() > 0 ? "bad" : "") +
           JitterTile("Jitter, average", statistics.MeanJitterMs()) +
           JitterTile("Jitter, highest", statistics.MaxJitterMs()) +
           Tile("Longest gap", MeasureText(Measure::kMilliseconds, gap)) +
           Tile("Without media", TimeText(statistics.WithoutMedia()), statistics.Outages() > 0 ? "bad" : "") +
           "</section>\n";
}

std::string TimeAfterPlay(const char *what, const FromPlay &time) {
    return time ? std::string(", ") + what + " " + TimeText(*time) + " after PLAY" : "";
}

std::string DescriptionOf(const StreamStatistics &statistics, const ProbedStream &probed) {
    std::string text = Headline(probed) + ", payload type " + std::to_string(probed.payloadType);
    if (!probed.control.empty()) text += ", control " + probed.control;
    text +=
        TimeAfterPlay("first packet", probed.firstPacket) + TimeAfterPlay("first key frame", probed.firstKeyFrame);
    if (statistics.Packets() > 0) text += Formatted(", SSRC 0x%08" PRIx32, statistics.Ssrc());
    return text + (probed.parameters.empty() ? "" : ", parameters " + probed.parameters);
}

std::string StreamSection(const StreamObservation &stream, const std::vector<ProbedStream> &described,
                          const std::vector<SeriesPoint> &series) {
    const int32_t number = stream.stream.number;
    const auto probed = std::find_if(described.begin(), described.end(), [number](const ProbedStream &candidate) {
        return candidate.stream.number == number;
    });
    return Formatted("<section class=\"stream hue%d\">\n<h2><i></i>Stream %d: ", (number - 1) % kHues, number) +
           Escaped(stream.stream.codec) + "</h2>\n" +
           TaggedLine("p class=\"muted\"",
                      probed == described.end() ? "" : DescriptionOf(stream.statistics, *probed)) +
           StreamTiles(stream.statistics) + "<div class=\"plots\">\n" + DrawPlots(series) + "</div></section>\n";
}

} // namespace

std::string HtmlReport(const ReportPage &page, const SeriesRecorder &recorder, const EventLog &events) {
    std::string body = Head(page, recorder.Last()) + "<section class=\"facts\">\n" +
                       ServerTable(page.probed.facts) + PhaseTable(page.probed) + EventTable(events) +
                       "</section>\n";
    for (const StreamObservation &stream : recorder.Last().streams)
        body += StreamSection(stream, page.probed.streams, recorder.PointsOf(stream.stream.number));
    return Formatted(kPage, Tagged("title", "Reception report: " + page.probed.url).c_str(), kReportStyle,
                     body.c_str());
}

} // namespace tool
