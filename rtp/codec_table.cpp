#include "rtp/codec_table.h"

#include "platform/text.h"
#include "rtsptap.h"

namespace rtsptap {
namespace {

// In the order in which names are compared.
constexpr Codec kCodecs[] = {
    {"H264", NameMatch::kExact, RTP_CODEC_H264, CodecGroup::kVideo, CodecConfig::kH264ParameterSets},
    {"MP4V-ES", NameMatch::kExact, RTP_CODEC_MP4V_ES, CodecGroup::kVideo},
    {"JPEG", NameMatch::kExact, RTP_CODEC_JPEG, CodecGroup::kVideo},
    {"MP2T", NameMatch::kExact, RTP_CODEC_MP2T, CodecGroup::kTransportStream},
    {"mpeg4-generic", NameMatch::kIgnoringCase, RTP_CODEC_MPEG4_GENERIC, CodecGroup::kAudio,
     CodecConfig::kAacConfig},
    {"PCMA", NameMatch::kExact, RTP_CODEC_PCMA, CodecGroup::kAudio},
    {"PCMU", NameMatch::kExact, RTP_CODEC_PCMU, CodecGroup::kAudio},
    {"G726", NameMatch::kContained, RTP_CODEC_G726, CodecGroup::kAudio}, // G726-16 to -40, and AAL2-G726-32
    {"L16", NameMatch::kExact, RTP_CODEC_L16, CodecGroup::kAudio},
    {"MPA", NameMatch::kExact, RTP_CODEC_MPA, CodecGroup::kAudio},
};

bool Fits(const Codec &codec, std::string_view name) {
    switch (codec.match) {
    case NameMatch::kIgnoringCase:
        return EqualIgnoringCase(name, codec.name);
    case NameMatch::kContained:
        return Contains(name, codec.name);
    case NameMatch::kExact:
        break;
    }
    return name == codec.name;
}

bool FitsInAnyCase(const Codec &codec, std::string_view name) {
    if (codec.match != NameMatch::kContained) return EqualIgnoringCase(name, codec.name);
    for (std::size_t at = 0; at < name.size(); ++at)
        if (EqualIgnoringCase(name.substr(at, codec.name.size()), codec.name)) return true;
    return false;
}

} // namespace

constinit const std::array<bool, 256> kIsCodecType = [] {
    std::array<bool, 256> isCodecType{};
    for (const Codec &codec : kCodecs) isCodecType.at(static_cast<std::size_t>(codec.type)) = true;
    return isCodecType;
}();

const Codec *FindCodec(int32_t codecType) {
    for (const Codec &codec : kCodecs)
        if (codec.type == codecType) return &codec;
    return nullptr;
}

const Codec *FindCodecByName(std::string_view encodingName) {
    for (const Codec &codec : kCodecs)
        if (Fits(codec, encodingName)) return &codec;
    return nullptr;
}

const Codec *FindCodecInAnyCase(std::string_view encodingName) {
    for (const Codec &codec : kCodecs)
        if (FitsInAnyCase(codec, encodingName)) return &codec;
    return nullptr;
}

} // namespace rtsptap
