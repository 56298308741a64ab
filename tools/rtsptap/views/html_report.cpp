#include "views/html_report.h"

#include "base/text.h"
#include "views/html_parts.h"
#include "views/html_streams.h"
#include "views/html_style.h"
#include "views/svg_plot.h"

#include <algorithm>

namespace tool {
namespace {

std::string Milliseconds(std::chrono::microseconds time) {
    return Formatted("%.1f ms", static_cast<double>(time.count()) / 1000);
}

std::string OrDash(const std::string &text) { return text.empty() ? "–" : text; }

std::string Row(const std::string &name, const std::string &value) {
    return "<tr>" + Tagged("th scope=\"row\"", name) + Tagged("td", OrDash(value)) + "</tr>\n";
}

std::string TransportTitle(const std::optional<Transport> &transport) {
    std::string title = transport ? TransportName(*transport) : "";
    std::transform(title.begin(), title.end(), title.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
    return title;
}

std::string Head(const ReportPage &page, const Observation &observation) {
    uint64_t packets = 0;
    uint64_t expected = 0;
    uint64_t lost = 0;
    double bitsPerSecond = 0;
    for (const auto &[stream, statistics, queued] : observation.streams) {
        packets += statistics.Packets();
        expected += statistics.Expected();
        lost += statistics.Lost();
        bitsPerSecond += statistics.BitsPerSecond();
    }
    std::string text = "<header><h1>Reception report</h1>\n" + Tagged("p class=\"address\"", page.probed.url) +
                       "\n" + Tagged("p class=\"muted\"", page.time) + "</header>\n";
    const std::string &verdict = page.probed.outcome.text;
    if (!verdict.empty()) text += Tagged("p class=\"verdict\"", verdict) + "\n";
    for (const std::string &line : page.omissions) text += Tagged("p class=\"muted\"", line) + "\n";
    return text + "<section class=\"tiles\">\n" + Tile("Received for", ElapsedText(observation.elapsed)) +
           Tile("Packets", std::to_string(packets)) + LossTile(lost, expected) +
           Tile("Bit rate", MeasureText(Measure::kBitRate, bitsPerSecond)) +
           Tile("Reconnects", std::to_string(observation.reconnects), observation.reconnects > 0 ? "bad" : "") +
           Tile("Transport", OrDash(TransportTitle(page.probed.transport))) + "</section>\n";
}

std::string ServerTable(const ServerFacts &facts) {
    const std::string timeout =
        facts.sessionTimeout ? std::to_string(facts.sessionTimeout->count()) + " s" : std::string();
    return "<div><h2>Server</h2>\n<table>\n" + Row("Address", facts.address + ":" + std::to_string(facts.port)) +
           Row("Software", facts.software) + Row("Methods", facts.methods) +
           Row("Authentication", facts.authentication) + Row("Session time-out", timeout) + "</table></div>\n";
}

std::string PhaseTable(const ProbeResult &probed) {
    std::vector<Phase> phases = probed.phases;
    if (const FromPlay time = FirstPacketOf(probed)) phases.push_back({"first packet", *time});
    if (const FromPlay time = FirstKeyFrameOf(probed)) phases.push_back({"first key frame", *time});
    std::chrono::microseconds longest{1};
    for (const Phase &phase : phases) longest = std::max(longest, phase.time);
    std::string text = "<div><h2>Time of each step</h2>\n<table>\n";
    for (const Phase &phase : phases) {
        const std::string share = Formatted("%.1f%%", 100 * static_cast<double>(phase.time.count()) /
                                                          static_cast<double>(longest.count()));
        text += "<tr>" + Tagged("th scope=\"row\"", phase.name) +
                Tagged("td class=\"number\"", Milliseconds(phase.time)) +
                "<td class=\"length\"><div style=\"width:" + share + "\"></div></td></tr>\n";
    }
    return text + "</table></div>\n";
}

std::string EventTable(const EventLog &log) {
    std::string text = "<div class=\"events\"><h2>Events</h2>\n<table>\n";
    for (const Event &event : log.Events())
        text += "<tr>" + Tagged("td class=\"time\"", ElapsedText(event.at)) + Tagged("td", event.stream) +
                Tagged("td", event.what) + "</tr>\n";
    text += "</table>\n";
    if (log.Events().empty()) text += Tagged("p", "No loss, no gap of a second or more, no reconnection.") + "\n";
    if (log.LeftOut() > 0) text += Tagged("p", "And " + std::to_string(log.LeftOut()) + " more.") + "\n";
    return text + "</div>\n";
}

std::string Sections(const ReportPage &page, const SeriesRecorder &recorder) {
    std::string text;
    for (const StreamObservation &stream : recorder.Last().streams) {
        const std::vector<ProbedStream> &all = page.probed.streams;
        const auto probed = std::find_if(all.begin(), all.end(), [&stream](const ProbedStream &candidate) {
            return candidate.stream.number == stream.stream.number;
        });
        text += StreamSection(stream, probed == all.end() ? nullptr : &*probed,
                              recorder.PointsOf(stream.stream.number));
    }
    return text;
}

constexpr const char *kHowToRead = R"(<section class="muted">
<p><b>Loss</b>: packets missing from the sequence numbers. <b>Jitter</b>: how much earlier or later than their timestamps
say packets arrive, smoothed (RFC 3550, 6.4.1). Of jitter and <b>time between packets</b> the line is the average, the
area behind it the highest. <b>Without media</b>: all stretches of a second or more without a packet. <b>Queue</b>: packets
that have arrived and are not yet taken. <b>Shaded</b>: not playing.</p>
</section>
)";

} // namespace

std::string HtmlReport(const ReportPage &page, const SeriesRecorder &recorder, const EventLog &events) {
    std::string text = "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                       "<meta http-equiv=\"Content-Security-Policy\" "
                       "content=\"default-src 'none'; style-src 'unsafe-inline'\">\n"
                       "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
                       "<meta name=\"color-scheme\" content=\"light dark\">\n";
    text += Tagged("title", "Reception report: " + page.probed.url) + "\n<style>\n" + kReportStyle +
            "</style>\n</head>\n<body>\n<main>\n";
    text += Head(page, recorder.Last()) + "<section class=\"facts\">\n" + ServerTable(page.probed.facts) +
            PhaseTable(page.probed) + EventTable(events) + "</section>\n";
    return text + Sections(page, recorder) + kHowToRead + "</main>\n</body>\n</html>\n";
}

} // namespace tool
