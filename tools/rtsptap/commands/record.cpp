// The streams of a server into a file.
#include "commands/audience.h"
#include "commands/commands.h"

namespace tool {
namespace {

constexpr Example kExamples[] = {
    {"rtsptap record rtsp://camera.local/live -o walk.mp4 --duration 10m", "picture and sound"},
    {"rtsptap record rtsp://camera.local/live -o day.mkv --split 1h --reconnect",
     "a file an hour, day-001.mkv and so on"},
    {"rtsptap record rtsp://camera.local/live -o live.pcap", "the packets as they came, for Wireshark"},
    {"rtsptap record rtsp://camera.local/live -o - --format ts | mpv -", "into another program"}};

constexpr const char *kNotes[] = {
    "Containers (mp4, mkv, ts) hold all streams; h264, h265, aac, wav and mjpeg the first that fits; pcap and "
    "rtpdump the packets as they came. Pictures are never encoded anew; sound is, where the container does "
    "not hold its codec. A file begins with a key frame and plays after Ctrl-C; a transport stream (mp2t) is "
    "written as it comes.",
    "Over UDP packets are put in order: a late one is waited for as long as --latency says, and later ones "
    "are counted. Captures have packets as they come, with RTCP, and a first one that describes them. "
    "Picture and sound are aligned by the server's clock (RTCP sender reports), before that as it says in its "
    "reply "
    "(RTP-Info), by arrival where it says nothing. A file is begun when the first reports are there, after 3.5 "
    "seconds at most; those that come later move a stream little by little."};

struct RecordSettings {
    ServerSettings server;
    ReceptionSettings reception;
    OutputSettings output;
};

Outcome Record(const RecordSettings &settings, const LibraryOutput &output, Interruption &interruption) {
    OutputFile file;
    Outcome failed = ChooseOutput(settings.output, kRecordings, output.Data(), interruption, file);
    if (!failed.IsOk()) return failed;
    Watchers watchers;
    failed = MakeRecordingWatchers(settings.reception, file, output.Data(), watchers);
    if (!failed.IsOk()) return failed;
    ServerSettings server = settings.server;
    file.latency = WaitingInOrder(server);
    return ReceiveFromServer(server, settings.reception.duration, AudienceOf(watchers, file), interruption);
}

} // namespace

Command RecordCommand() {
    const auto settings = std::make_shared<RecordSettings>();
    ServerSettings &server = settings->server;
    return {.name = "record",
            .summary = "write the streams of a server to a file",
            .examples = kExamples,
            .notes = kNotes,
            .argument = UrlArgument(server),
            .groups = {RecordingOptions(settings->output, true),
                       DurationOptions(settings->reception.duration, kUntilInterrupted),
                       FigureOptions(settings->reception), ServerOptions(server), WaitingOptions(server),
                       StayingOptions(server, true)},
            .run = [settings](const LibraryOutput &output,
                              Interruption &interruption) { return Record(*settings, output, interruption); },
            .check = [settings] { return CheckStandardOutput(settings->output, settings->reception); }};
}

} // namespace tool
