#include "listen.h"

#include "codec_names.h"
#include "recording.h"

#include <charconv>

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

std::vector<StreamFormat> FormatsOfPorts(const ListenSettings &settings) {
    std::vector<StreamFormat> formats;
    for (const ListenPort &port : {settings.video, settings.audio}) {
        if (port.codecType == 0) continue;
        const auto number = static_cast<int32_t>(formats.size()) + 1;
        formats.push_back(
            FormatOfCodec({number, CodecDisplayName(port.codecType), port.codecType, true}, port.port));
    }
    return formats;
}

Outcome RecordPorts(const ListenSettings &settings, const Session &session, const OutputFile &file,
                    Interruption &interruption) {
    const std::vector<StreamFormat> formats = FormatsOfPorts(settings);
    std::unique_ptr<PacketSink> sink;
    if (Outcome failed = MakeSink(file, formats, sink); !failed.IsOk()) return failed;
    return ReceiveAndRecord(session, formats, *sink, {settings.duration, {}}, settings.output.split, interruption);
}

} // namespace

Outcome Listen(const ListenSettings &settings, const LibraryOutput &output, Interruption &interruption) {
    if (settings.video.codecType == 0 && settings.audio.codecType == 0)
        return {ExitCode::kUsage, "listen: give --video, --audio or both"};
    if (settings.video.codecType == RTP_CODEC_MP2T && settings.audio.codecType != 0)
        return {ExitCode::kUsage, "listen: a transport stream carries its own audio; leave out --audio"};
    const bool records = !settings.output.file.empty();
    OutputFile file;
    if (records)
        if (Outcome refused = ChooseOutput(settings.output, kRecordings, output.Data(), file); !refused.IsOk())
            return refused;
    Session session;
    if (Outcome failed = session.Listen(settings.video, settings.audio); !failed.IsOk()) return failed;
    if (records) return RecordPorts(settings, session, file, interruption);
    std::vector<Stream> streams;
    for (const StreamFormat &format : FormatsOfPorts(settings)) streams.push_back(format.stream);
    Reception reception(session, streams);
    return ReceiveAndReport(reception, {settings.duration, {}}, output.Data(), interruption);
}

} // namespace tool
