#include "rtp/codec_table.h"

#include "platform/text.h"
#include "rtsptap_extended.h"

namespace rtsptap {
namespace {

// In the order in which names are compared.
constexpr Codec kCodecs[] = {
    {"H264", NameMatch::kExact, RTP_CODEC_H264, CodecGroup::kVideo, CodecConfig::kH264ParameterSets},
    {"MP4V-ES", NameMatch::kExact, RTP_CODEC_MP4V_ES, CodecGroup::kVideo, CodecConfig::kConfigBytes},
    {"JPEG", NameMatch::kExact, RTP_CODEC_JPEG, CodecGroup::kVideo},
    {"MP2T", NameMatch::kExact, RTP_CODEC_MP2T, CodecGroup::kTransportStream},
    {"mpeg4-generic", NameMatch::kIgnoringCase, RTP_CODEC_MPEG4_GENERIC, CodecGroup::kAudio,
     CodecConfig::kAacConfig},
    {"PCMA", NameMatch::kExact, RTP_CODEC_PCMA, CodecGroup::kAudio, CodecConfig::kNone, false, 8000},
    {"PCMU", NameMatch::kExact, RTP_CODEC_PCMU, CodecGroup::kAudio, CodecConfig::kNone, false, 8000},
    {"G726", NameMatch::kContained, RTP_CODEC_G726, CodecGroup::kAudio, CodecConfig::kNone, false, 8000}, // G726-16 to -40, and AAL2-G726-32
    {"L16", NameMatch::kExact, RTP_CODEC_L16, CodecGroup::kAudio},
    {"MPA", NameMatch::kExact, RTP_CODEC_MPA, CodecGroup::kAudio, CodecConfig::kNone, false, 90000},
    {"H265", NameMatch::kIgnoringCase, RTSPTAP_CODEC_H265, CodecGroup::kVideo, CodecConfig::kH265ParameterSets,
     true},
    {"HEVC", NameMatch::kIgnoringCase, RTSPTAP_CODEC_H265, CodecGroup::kVideo, CodecConfig::kH265ParameterSets,
     true},
    {"VP8", NameMatch::kIgnoringCase, RTSPTAP_CODEC_VP8, CodecGroup::kVideo, CodecConfig::kNone, true},
    {"VP9", NameMatch::kIgnoringCase, RTSPTAP_CODEC_VP9, CodecGroup::kVideo, CodecConfig::kNone, true},
    {"AV1", NameMatch::kIgnoringCase, RTSPTAP_CODEC_AV1, CodecGroup::kVideo, CodecConfig::kNone, true},
    {"MPV", NameMatch::kIgnoringCase, RTSPTAP_CODEC_MPV, CodecGroup::kVideo, CodecConfig::kNone, true},
    {"opus", NameMatch::kIgnoringCase, RTSPTAP_CODEC_OPUS, CodecGroup::kAudio, CodecConfig::kNone, true, 48000},
    {"G722", NameMatch::kIgnoringCase, RTSPTAP_CODEC_G722, CodecGroup::kAudio, CodecConfig::kNone, true, 8000},
    {"G723", NameMatch::kIgnoringCase, RTSPTAP_CODEC_G723, CodecGroup::kAudio, CodecConfig::kNone, true, 8000},
    {"G729", NameMatch::kIgnoringCase, RTSPTAP_CODEC_G729, CodecGroup::kAudio, CodecConfig::kNone, true, 8000},
    {"GSM", NameMatch::kIgnoringCase, RTSPTAP_CODEC_GSM, CodecGroup::kAudio, CodecConfig::kNone, true, 8000},
    {"speex", NameMatch::kIgnoringCase, RTSPTAP_CODEC_SPEEX, CodecGroup::kAudio, CodecConfig::kNone, true},
    {"L8", NameMatch::kIgnoringCase, RTSPTAP_CODEC_L8, CodecGroup::kAudio, CodecConfig::kNone, true},
    {"L20", NameMatch::kIgnoringCase, RTSPTAP_CODEC_L20, CodecGroup::kAudio, CodecConfig::kNone, true},
    {"L24", NameMatch::kIgnoringCase, RTSPTAP_CODEC_L24, CodecGroup::kAudio, CodecConfig::kNone, true},
    {"MP4A-LATM", NameMatch::kIgnoringCase, RTSPTAP_CODEC_MP4A_LATM, CodecGroup::kAudio, CodecConfig::kConfigBytes,
     true},
    {"ac3", NameMatch::kIgnoringCase, RTSPTAP_CODEC_AC3, CodecGroup::kAudio, CodecConfig::kNone, true},
    {"vnd.onvif.metadata", NameMatch::kContained, RTSPTAP_CODEC_ONVIF_METADATA, CodecGroup::kData,
     CodecConfig::kNone, true}, // with .gzip or .exi behind it
    {"t140", NameMatch::kIgnoringCase, RTSPTAP_CODEC_T140, CodecGroup::kData, CodecConfig::kNone, true},
    {"smpte291", NameMatch::kIgnoringCase, RTSPTAP_CODEC_SMPTE291, CodecGroup::kData, CodecConfig::kNone, true},
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

const Codec *FindInAnyCase(std::string_view name, bool isFurther) {
    for (const Codec &codec : kCodecs)
        if (codec.isFurther == isFurther && FitsInAnyCase(codec, name)) return &codec;
    return nullptr;
}

} // namespace

constexpr std::array<bool, 256> kIsCodecType = [] {
    std::array<bool, 256> isCodecType{};
    for (const Codec &codec : kCodecs)
        if (!codec.isFurther) isCodecType.at(static_cast<std::size_t>(codec.type)) = true;
    return isCodecType;
}();

const Codec *FindCodec(int32_t codecType) {
    for (const Codec &codec : kCodecs)
        if (codec.type == codecType) return &codec;
    return nullptr;
}

int32_t UsualClockRate(int32_t codecType) {
    constexpr int32_t kVideoClockRate = 90000;
    const Codec *const codec = FindCodec(codecType);
    if (codec == nullptr) return 0;
    const bool isVideo = codec->group == CodecGroup::kVideo || codec->group == CodecGroup::kTransportStream;
    return isVideo ? kVideoClockRate : codec->clockRate;
}

const Codec *FindCodecByName(std::string_view encodingName) {
    for (const Codec &codec : kCodecs)
        if (!codec.isFurther && Fits(codec, encodingName)) return &codec;
    return nullptr;
}

const Codec *FindCodecInAnyCase(std::string_view encodingName) { return FindInAnyCase(encodingName, false); }

const Codec *FindFurtherCodec(std::string_view encodingName) { return FindInAnyCase(encodingName, true); }

} // namespace rtsptap
