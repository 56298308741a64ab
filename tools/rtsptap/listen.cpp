#include "listen.h"

#include "codec_names.h"
#include "reception.h"

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

Outcome Listen(const ListenSettings &settings, const LibraryOutput &output, Interruption &interruption) {
    if (settings.video.codecType == 0 && settings.audio.codecType == 0)
        return {ExitCode::kUsage, "listen: give --video, --audio or both"};
    if (settings.video.codecType == RTP_CODEC_MP2T && settings.audio.codecType != 0)
        return {ExitCode::kUsage, "listen: a transport stream carries its own audio; leave out --audio"};
    Session session;
    if (Outcome failed = session.Listen(settings.video, settings.audio); !failed.IsOk()) return failed;
    std::vector<Stream> streams;
    for (const int32_t codecType : {settings.video.codecType, settings.audio.codecType})
        if (codecType != 0)
            streams.push_back(
                {static_cast<int32_t>(streams.size()) + 1, CodecDisplayName(codecType), codecType, true});
    Reception reception(session, streams);
    return ReceiveAndReport(reception, {settings.duration, {}}, output.Data(), interruption);
}

} // namespace tool
