#include "base/codec_names.h"

#include "base/text.h"
#include "rtsptap.h"

namespace tool {
namespace {

struct Codec {
    int32_t type;
    const char *name;
    const char *displayName;
    bool isVideo;
};

constexpr Codec kCodecs[] = {
    {RTP_CODEC_H264, "h264", "H264", true},  {RTP_CODEC_MP4V_ES, "mp4v", "MP4V-ES", true},
    {RTP_CODEC_JPEG, "jpeg", "JPEG", true},  {RTP_CODEC_MP2T, "mp2t", "MP2T", true},
    {RTP_CODEC_PCMA, "pcma", "PCMA", false}, {RTP_CODEC_PCMU, "pcmu", "PCMU", false},
    {RTP_CODEC_L16, "l16", "L16", false},    {RTP_CODEC_MPEG4_GENERIC, "aac", "MPEG4-GENERIC", false},
    {RTP_CODEC_G726, "g726", "G726", false}, {RTP_CODEC_MPA, "mpa", "MPA", false},
};

} // namespace

int32_t CodecTypeOfName(std::string_view name) {
    for (const Codec &codec : kCodecs)
        if (SameText(codec.name, name)) return codec.type;
    return 0;
}

int32_t CodecTypeOfEncoding(std::string_view name) {
    for (const Codec &codec : kCodecs) {
        const std::string_view known = codec.displayName;
        const bool hasRate = codec.type == RTP_CODEC_G726; // "G726-32"
        if (SameText(known, hasRate ? name.substr(0, known.size()) : name)) return codec.type;
    }
    return 0;
}

std::vector<std::string> CodecNames(bool video) {
    std::vector<std::string> names;
    for (const Codec &codec : kCodecs)
        if (codec.isVideo == video) names.push_back(codec.name);
    return names;
}

const char *CodecDisplayName(int32_t codecType) {
    for (const Codec &codec : kCodecs)
        if (codec.type == codecType) return codec.displayName;
    return "unknown";
}

} // namespace tool
