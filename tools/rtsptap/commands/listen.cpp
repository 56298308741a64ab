#include "commands/listen.h"

#include "base/codec_names.h"
#include "base/console.h"
#include "commands/audience.h"
#include "media/key_frame.h"
#include "media/sdp_file.h"
#include "session/multicast_membership.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <list>
#include <optional>

namespace tool {

bool ParseListenPort(const std::string &text, bool video, ListenPort &port) {
    const std::size_t at = text.find('@');
    if (at == std::string::npos) return false;
    port.codecType = CodecTypeOfName(text.substr(0, at));
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + at + 1, end, port.port);
    const bool ofThisMedium = port.codecType != 0 && (port.codecType < RTP_CODEC_PCMA) == video;
    return error == std::errc() && stop == end && port.port != 0 && ofThisMedium;
}

namespace {

using Memberships = std::list<MulticastMembership>;

Outcome StreamsOfPorts(const ListenSettings &settings, SdpFile &sdp) {
    if (settings.video.codecType != 0 && settings.video.port == settings.audio.port)
        return {ExitCode::kUsage, "listen: --video and --audio need a port each"};
    for (const ListenPort &port : {settings.video, settings.audio}) {
        if (port.codecType == 0) continue;
        const auto number = static_cast<int32_t>(sdp.streams.size()) + 1;
        StreamFormat format =
            FormatOfCodec({number, CodecDisplayName(port.codecType), port.codecType, true}, port.port);
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
                    [](const SdpStream &stream) { return stream.format.stream.codecType == RTP_CODEC_MP2T; });
    if (!hasTransportStream || sdp.streams.size() == 1) return {};
    return {ExitCode::kUsage, "listen: a transport stream carries its own audio; listen to it alone"};
}

Outcome OpenPorts(const SdpFile &sdp, Memberships &memberships, OpenedSession &opened) {
    opened.session = std::make_shared<Session>();
    for (const auto &[format, group] : sdp.streams) {
        if (!group.empty() && !memberships.emplace_back(group).HasJoined())
            return {ExitCode::kUnreachable, "multicast group " + group + ": " + std::strerror(errno)};
        const ListenPort port = {format.stream.codecType, format.port};
        if (Outcome failed = opened.session->Listen(port); !failed.IsOk()) return failed;
        opened.streams.push_back(format.stream);
        opened.formats.push_back(format);
    }
    return {};
}

// Says once that a stream can be counted, but not be decoded. One stream at most has this codec.
PacketObserver WatchForParameterSets() {
    static constexpr auto kPatience = std::chrono::seconds(5); // longer than most senders have between them
    struct Watch {
        bool done = false;
        std::optional<Clock::time_point> first;
    };
    return [watch = std::make_shared<Watch>()](const Stream &stream, const RTPStreamData &packet,
                                               Clock::time_point arrival) {
        if (watch->done || stream.codecType != RTP_CODEC_H264) return;
        if (!watch->first) watch->first = arrival;
        watch->done = !FindSps(PayloadOf(packet)).empty();
        if (watch->done || arrival - *watch->first < kPatience) return;
        watch->done = true;
        PrintNotice(NameOf(stream) +
                    " brings no parameter sets, without which H.264 cannot be decoded: take them from "
                    "the sender's description with --sdp, or let it repeat them");
    };
}

} // namespace

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
    Memberships memberships;
    OpenedSession opened;
    if (failed.IsOk()) failed = OpenPorts(sdp, memberships, opened);
    if (!failed.IsOk()) return failed;
    if (records)
        file.latency = settings.latency.value_or(kUsualLatency);
    else if (settings.latency)
        opened.session->SetLatency(static_cast<int32_t>(settings.latency->count()));
    Audience audience = records ? AudienceOf(watchers, file) : AudienceOf(watchers);
    for (const StreamFormat &format : opened.formats)
        if (format.stream.codecType == RTP_CODEC_H264 && !HasParameterSets(format))
            audience.observers.push_back(WatchForParameterSets());
    return ReceiveOpened(opened, settings.reception.duration, audience, interruption);
}

} // namespace tool
