// Receives for a while and writes a page about it.
#include "base/console.h"
#include "base/writing.h"
#include "commands/commands.h"
#include "reception/receive.h"
#include "session/library_output.h"
#include "views/report_page.h"
#include "views/watchers.h"

#include <ctime>

namespace tool {
namespace {

constexpr Example kExamples[] = {{"rtsptap report rtsp://camera.local/live --duration 60s -o report.html", ""}};

constexpr const char *kNotes[] = {
    "One file without scripts: what probe shows, a list of what disturbed the reception, and bit rate, loss, "
    "jitter, distance of packets and queue length of every stream as plots."};

struct ReportSettings {
    ServerSettings server;
    std::chrono::milliseconds duration{60000};
    std::string output; // the HTML file; "-": standard output
};

std::string LocalTime() {
    const std::time_t now = std::time(nullptr);
    tm parts = {};
    localtime_r(&now, &parts);
    char text[64];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %z", &parts);
    return text;
}

// Receives, and notes on the page what it finds out; false when nothing was opened.
bool Gather(const ReportSettings &settings, Interruption &interruption, SeriesRecorder &recorder, EventLog &events,
            ReportPage &page) {
    Arrivals arrivals;
    const std::unique_ptr<Watcher> warnings = MakeWarnings();
    const std::unique_ptr<Watcher> view = MakeLiveView();
    bool delivers = false;
    bool opened = false;
    Audience audience;
    audience.watchers = {&recorder, &events, warnings.get(), view.get()};
    audience.observers = {recorder.Observer(),
                          [&](const Stream &stream, const RTPStreamData &packet, Clock::time_point arrival) {
                              delivers = true;
                              arrivals.Note(stream, packet, arrival);
                          }};
    // Of the session that delivered first: before it there may have been one over another transport.
    audience.opened = [&](const OpenedSession &session) {
        if (delivers) return;
        opened = true;
        TakeOpening(session, page.probed);
        page.omissions = DescribeOmissions(session);
        arrivals.Begin(ProbedStreamsOf(session));
    };
    page.probed.outcome = ReceiveFromServer(settings.server, settings.duration, audience, interruption);
    page.probed.streams = arrivals.Streams();
    return opened;
}

Outcome WriteReport(const ReportSettings &settings, FILE *standardOutput, Interruption &interruption) {
    PageFile file;
    if (Outcome failed = file.Open(settings.output, standardOutput); !failed.IsOk()) return failed;
    ReportPage page;
    page.probed.url = UrlWithoutCredentials(settings.server.url);
    page.time = LocalTime();
    SeriesRecorder recorder;
    EventLog events;
    Outcome &outcome = page.probed.outcome;
    if (!Gather(settings, interruption, recorder, events, page)) return outcome;
    if (outcome.IsOk()) outcome = JudgeStreams(recorder.Last().streams);
    if (Outcome failed = file.Write(HtmlReport(page, recorder, events)); !failed.IsOk()) return failed;
    if (settings.output != "-") PrintNotice("the report is in " + settings.output);
    return outcome;
}

} // namespace

Command ReportCommand() {
    const auto settings = std::make_shared<ReportSettings>();
    ServerSettings &server = settings->server;
    return {.name = "report",
            .summary = "receive for a while and write an HTML page about it",
            .examples = kExamples,
            .notes = kNotes,
            .argument = UrlArgument(server),
            .groups = {{"Page",
                        {{"-o,--output", "FILE", "write the page there; - is standard output",
                          Into(settings->output), true}}},
                       DurationOptions(settings->duration, "60s"),
                       ServerOptions(server),
                       WaitingOptions(server),
                       StayingOptions(server, false)},
            .run = [settings](const LibraryOutput &output, Interruption &interruption) {
                return WriteReport(*settings, output.Data(), interruption);
            }};
}

} // namespace tool
