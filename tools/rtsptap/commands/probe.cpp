// What a server offers, and how long every step takes up to the first key frame.
#include "base/writing.h"
#include "commands/commands.h"
#include "reception/receive.h"
#include "session/library_output.h"
#include "views/probe_result.h"

namespace tool {
namespace {

constexpr Example kExamples[] = {
    {"rtsptap probe rtsp://camera.local/live", "streams, server, and the time of every step"},
    {"rtsptap probe rtsp://camera.local/live --explain", "also what is odd about it, line by line"},
    {"rtsptap probe rtsp://camera.local/live --json | jq .streams", "the same for programs"}};

constexpr const char *kNotes[] = {
    "Connects, plays until every stream has brought a packet and every video stream a key frame, and tears "
    "the session down. When no packet comes, what is known is shown all the same."};

struct ProbeSettings {
    ServerSettings server;
    bool json = false;    // instead of text
    bool explain = false; // what had to be tolerated
};

// Has enough when every stream has shown itself.
class ArrivalSink : public PacketSink {
public:
    explicit ArrivalSink(Arrivals &arrivals) : arrivals_(arrivals) {}

    void Take(const Stream &stream, const RTPStreamData &packet, Clock::time_point arrival) override {
        arrivals_.Note(stream, packet, arrival);
    }
    bool IsDone() override { return arrivals_.AreComplete(); }
    Outcome Finish() override { return {}; }

private:
    Arrivals &arrivals_;
};

Outcome JudgeArrivals(const std::vector<ProbedStream> &streams) {
    for (const ProbedStream &probed : streams)
        if (probed.stream.isReadable && !probed.firstPacket && !MayBeSilent(probed.stream))
            return {ExitCode::kNoMedia, NameOf(probed.stream) + ": no packet arrived"};
    return {};
}

Outcome Probe(const ProbeSettings &settings, const LibraryOutput &output, Interruption &interruption) {
    ProbeResult result;
    result.url = UrlWithoutCredentials(settings.server.url);
    Arrivals arrivals;
    Audience audience;
    audience.makeSink = [&arrivals](const OpenedSession &, std::unique_ptr<PacketSink> &sink) {
        sink = std::make_unique<ArrivalSink>(arrivals);
        return Outcome();
    };
    std::shared_ptr<Session> session; // tells until the end what it met
    audience.opened = audience.refused = [&result, &arrivals, &session](const OpenedSession &opened) {
        TakeOpening(opened, result);
        session = opened.session;
        arrivals.Begin(ProbedStreamsOf(opened));
    };
    // As long as a first packet may take, so long may the others, and the key frames.
    result.outcome = ReceiveFromServer(settings.server, settings.server.idleTimeout, audience, interruption);
    result.streams = arrivals.Streams();
    if (session != nullptr) result.tolerated = session->Tolerated();
    if (result.outcome.IsOk()) result.outcome = JudgeArrivals(result.streams);
    if (result.url.empty()) return result.outcome;
    const bool reachedNothing = result.phases.size() < 2; // the name has an address, and nobody answers there
    const std::string shown = settings.json    ? ProbeJson(result)
                              : reachedNothing ? ""
                                               : ProbeText(result, settings.explain);
    const Outcome written = WriteText(output.Data(), shown, kStandardOutput);
    return written.IsOk() ? result.outcome : written;
}

} // namespace

Command ProbeCommand() {
    const auto settings = std::make_shared<ProbeSettings>();
    ServerSettings &server = settings->server;
    return {.name = "probe",
            .summary = "show what a server offers, and how fast it answers",
            .examples = kExamples,
            .notes = kNotes,
            .argument = UrlArgument(server),
            .groups = {{"Probe",
                        {{"--json", "", "show JSON instead of text", Switch(settings->json)},
                         {"--explain", "", "show what the standards do not allow, and had to be tolerated",
                          Switch(settings->explain)}}},
                       ServerOptions(server),
                       WaitingOptions(server)},
            .run = [settings](const LibraryOutput &output, Interruption &interruption) {
                return Probe(*settings, output, interruption);
            }};
}

} // namespace tool
