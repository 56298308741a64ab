#include "session/stream_format.h"

#include "base/text.h"

#include <algorithm>
#include <cctype>
#include <iterator>

namespace tool {
namespace {

struct CodecDefaults {
    int32_t codecType;
    const char *encodingName;
    int32_t clockRate;
};

constexpr CodecDefaults kDefaults[] = {
    {RTP_CODEC_H264, "H264", 90000},   {RTP_CODEC_MP4V_ES, "MP4V-ES", 90000},
    {RTP_CODEC_JPEG, "JPEG", 90000},   {RTP_CODEC_MP2T, "MP2T", 90000},
    {RTP_CODEC_PCMA, "PCMA", 8000},    {RTP_CODEC_PCMU, "PCMU", 8000},
    {RTP_CODEC_L16, "L16", 44100},     {RTP_CODEC_MPEG4_GENERIC, "MPEG4-GENERIC", 44100},
    {RTP_CODEC_G726, "G726-32", 8000}, {RTP_CODEC_MPA, "MPA", 90000},
};

constexpr uint16_t kFirstCapturePort = 5004; // the customary RTP port

std::string WithLetters(std::string text, int (*change)(int)) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [change](unsigned char letter) { return static_cast<char>(change(letter)); });
    return text;
}

} // namespace

StreamFormat FormatOfCodec(const Stream &stream, uint16_t port) {
    StreamFormat format{stream, stream.codecType < RTP_CODEC_PCMA, 0, 0, "", "", port};
    const auto *row =
        std::find_if(std::begin(kDefaults), std::end(kDefaults),
                     [&stream](const CodecDefaults &entry) { return entry.codecType == stream.codecType; });
    if (row == std::end(kDefaults)) return format;
    format.encodingName = row->encodingName;
    format.clockRate = row->clockRate;
    return format;
}

std::vector<StreamFormat> FormatsOfSession(const Session &session, const std::vector<Stream> &streams) {
    std::vector<StreamFormat> formats;
    for (const Stream &stream : streams) {
        const RTSPStreamDescription *description = session.Description(stream.number);
        if (!stream.isReadable || description == nullptr) continue;
        const auto port = static_cast<uint16_t>(kFirstCapturePort + 2 * (stream.number - 1));
        StreamFormat format = FormatOfCodec(stream, port);
        format.encodingName = WithLetters(description->encodingName, std::toupper);
        if (description->clockRate > 0) format.clockRate = description->clockRate;
        format.channels = description->channels;
        if (description->fmtp != nullptr) format.parameters = description->fmtp;
        formats.push_back(format);
    }
    return formats;
}

bool HasParameterSets(const StreamFormat &format) {
    const auto fields = SplitParameters(format.parameters);
    return std::any_of(fields.begin(), fields.end(), [](const auto &field) {
        return field.first == "sprop-parameter-sets" && !field.second.empty();
    });
}

std::vector<std::pair<std::string, std::string>> SplitParameters(const std::string &parameters) {
    std::vector<std::pair<std::string, std::string>> fields;
    const std::string text = Trimmed(parameters);
    std::size_t begin = text.find_first_of(" \t"); // past the payload type
    while (begin < text.size()) {
        const std::size_t end = std::min(text.find(';', begin), text.size());
        const std::string field = text.substr(begin, end - begin);
        begin = end + 1;
        const std::size_t equals = field.find('=');
        if (equals == std::string::npos) continue;
        fields.emplace_back(WithLetters(Trimmed(field.substr(0, equals)), std::tolower),
                            Trimmed(field.substr(equals + 1)));
    }
    return fields;
}

} // namespace tool
