// Receives RTP on local ports, without RTSP, and shows or records it.
#include "base/codecs.h"
#include "base/console.h"
#include "commands/audience.h"
#include "commands/commands.h"
#include "media/look.h"
#include "session/description.h"
#include "session/session.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace tool {
namespace {

constexpr Example kExamples[] = {
    {"rtsptap listen --video h264@5004 --audio pcmu@5006", ""},
    {"rtsptap listen --sdp stream.sdp -o talk.mkv --duration 5m", "codecs and ports of a description"}};

constexpr const char *kNotes[] = {
    "AAC, and H.264 and H.265 without parameter sets in the stream, need the parameters of a description to be "
    "recorded: --sdp. Multicast groups that it names are joined; its other addresses are ignored, since packets "
    "are taken on every local one."};

struct ListenSettings {
    ListenPort video;
    ListenPort audio;
    std::string sdpFile;                              // a description instead; "-": standard input
    std::optional<std::chrono::milliseconds> latency; // how long packets are held back; none: as usual
    ReceptionSettings reception;
    OutputSettings output; // no file: nothing is recorded
};

// Reads "h264@5004"; false when codec or port are none, or the codec is one of the other medium.
bool ParseListenPort(const std::string &text, const std::string &medium, ListenPort &port) {
    const std::size_t at = text.find('@');
    if (at == std::string::npos) return false;
    port.codecType = CodecTypeOfName(text.substr(0, at));
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + at + 1, end, port.port);
    const bool ofThisMedium = port.codecType != 0 && CodecOf(port.codecType)->medium == medium;
    return error == std::errc() && stop == end && port.port != 0 && ofThisMedium;
}

Reader IntoPort(ListenPort &port, const std::string &medium) {
    return [&port, medium](const std::string &text) -> std::string {
        if (ParseListenPort(text, medium, port)) return "";
        return "is not CODEC@PORT with a codec of " + Joined(CodecNames(medium), ", ");
    };
}

Option Port(const std::string &medium, ListenPort &port) {
    std::vector<std::string> words = CodecNames(medium);
    const std::string help = "receive " + medium + "; CODEC is one of " + Joined(words, ", ");
    for (std::string &word : words) word += "@";
    return {"--" + medium, "CODEC@PORT", help, IntoPort(port, medium), false, words};
}

OptionGroup PortOptions(ListenSettings &listen) {
    return {"Ports",
            {Port("video", listen.video),
             Port("audio", listen.audio),
             {"--sdp", "FILE", "take codecs, ports and parameters from a session description; - is standard input",
              Into(listen.sdpFile)},
             LatencyOption(listen.latency, TimeText(kUsualLatency) + " for a recording, else 0")}};
}

Outcome StreamsOfPorts(const ListenSettings &settings, SdpFile &sdp) {
    if (settings.video.codecType != 0 && settings.video.port == settings.audio.port)
        return {ExitCode::kUsage, "listen: --video and --audio need a port each"};
    for (const ListenPort &port : {settings.video, settings.audio}) {
        if (port.codecType == 0) continue;
        const auto number = static_cast<int32_t>(sdp.streams.size()) + 1;
        StreamFormat format =
            FormatOfCodec({number, CodecOf(port.codecType)->encodingName, port.codecType, true}, port.port);
        format.stream.clockRate = format.clockRate;
        sdp.streams.push_back({std::move(format), ""});
    }
    if (sdp.streams.empty()) return {ExitCode::kUsage, "listen: give --video, --audio or --sdp"};
    return {};
}

Outcome FindStreams(const ListenSettings &settings, SdpFile &sdp) {
    const bool hasPorts = settings.video.codecType != 0 || settings.audio.codecType != 0;
    if (settings.sdpFile.empty()) return StreamsOfPorts(settings, sdp);
    if (hasPorts) return {ExitCode::kUsage, "listen: the ports come from --sdp or from --video and --audio"};
    if (Outcome refused = ReadSdpFile(settings.sdpFile, sdp); !refused.IsOk()) return refused;
    for (const std::string &line : sdp.omissions) PrintNotice(line);
    if (!sdp.streams.empty()) return {};
    return {ExitCode::kNoSupportedStream, settings.sdpFile + ": no stream has a codec that can be received"};
}

Outcome CheckStreams(const SdpFile &sdp) {
    const bool hasTransportStream =
        std::any_of(sdp.streams.begin(), sdp.streams.end(),
                    [](const SdpStream &stream) { return stream.format.codec->type == RTP_CODEC_MP2T; });
    if (!hasTransportStream || sdp.streams.size() == 1) return {};
    return {ExitCode::kUsage, "listen: a transport stream carries its own audio; listen to it alone"};
}

Outcome OpenPorts(const SdpFile &sdp, OpenedSession &opened) {
    opened.session = std::make_shared<Session>();
    for (const auto &[format, group] : sdp.streams) {
        const ListenPort port = {format.stream.codecType, format.port, group};
        if (Outcome failed = opened.session->Listen(format.stream.number, port); !failed.IsOk()) return failed;
        opened.streams.push_back(format.stream);
        opened.formats.push_back(format);
    }
    return {};
}

// Says once that a stream can be counted, but not be decoded.
PacketObserver WatchForParameterSets(int32_t number) {
    static constexpr auto kPatience = std::chrono::seconds(5); // longer than most senders have between them
    struct Watch {
        bool done = false;
        std::optional<Clock::time_point> first;
    };
    return [number, watch = std::make_shared<Watch>()](const Stream &stream, const RTPStreamData &packet,
                                                       Clock::time_point arrival) {
        if (stream.number != number || watch->done) return;
        if (!watch->first) watch->first = arrival;
        watch->done = LookInto(stream.codecType, packet).hasParameterSets != 0;
        if (watch->done || arrival - *watch->first < kPatience) return;
        watch->done = true;
        PrintNotice(NameOf(stream) +
                    " brings no parameter sets, without which it cannot be decoded: take them from "
                    "the sender's description with --sdp, or let it repeat them");
    };
}

Outcome Listen(const ListenSettings &settings, const LibraryOutput &output, Interruption &interruption) {
    SdpFile sdp;
    Outcome failed = FindStreams(settings, sdp);
    if (failed.IsOk()) failed = CheckStreams(sdp);
    OutputFile file;
    const bool records = !settings.output.file.empty();
    if (failed.IsOk() && records)
        failed = ChooseOutput(settings.output, kRecordings, output.Data(), interruption, file);
    Watchers watchers;
    if (failed.IsOk())
        failed = records ? MakeRecordingWatchers(settings.reception, file, output.Data(), watchers)
                         : MakePlayingWatchers(settings.reception, output.Data(), watchers);
    OpenedSession opened;
    if (failed.IsOk()) failed = OpenPorts(sdp, opened);
    if (!failed.IsOk()) return failed;
    if (records)
        file.latency = settings.latency.value_or(kUsualLatency);
    else if (settings.latency)
        opened.session->SetLatency(static_cast<int32_t>(settings.latency->count()));
    Audience audience = records ? AudienceOf(watchers, file) : AudienceOf(watchers);
    for (const StreamFormat &format : opened.formats)
        if (LacksParameterSets(format)) audience.observers.push_back(WatchForParameterSets(format.stream.number));
    return ReceiveOpened(opened, settings.reception.duration, audience, interruption);
}

} // namespace

Command ListenCommand() {
    const auto settings = std::make_shared<ListenSettings>();
    return {.name = "listen",
            .summary = "receive RTP on local ports, without RTSP",
            .examples = kExamples,
            .notes = kNotes,
            .argument = {},
            .groups = {PortOptions(*settings), RecordingOptions(settings->output, false),
                       DurationOptions(settings->reception.duration, kUntilInterrupted),
                       FigureOptions(settings->reception)},
            .run = [settings](const LibraryOutput &output,
                              Interruption &interruption) { return Listen(*settings, output, interruption); },
            .check = [settings] { return CheckStandardOutput(settings->output, settings->reception); }};
}

} // namespace tool
