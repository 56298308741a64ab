#include "base/codecs.h"

#include "base/text.h"
#include "rtsptap_extended.h"

#include <algorithm>
#include <iterator>

namespace tool {
namespace {

constexpr unsigned kAnew = kMp4 | kTs | kAac; // where sound that they do not hold becomes AAC

// clang-format off
constexpr Codec kCodecs[] = {
    // type, name, encoding name, variant, medium, frames, clock, payload type, channels, parameter sets, needs parameters
    //     depayloader, parser, decoder, stored, sampled, encoded, in MP4, in streams
    {RTP_CODEC_H264, "h264", "H264", "", "video", true, 90000, 96, 0, "sprop-parameter-sets", false,
        "rtph264depay", "h264parse name=gate", "avdec_h264 output-corrupt=false", kContainers | kH264, 0, 0,
        "?h264timestamper", "config-interval=-1 ! video/x-h264,stream-format=byte-stream,alignment=au"},
    {RTSPTAP_CODEC_H265, "h265", "H265", "", "video", true, 90000, 96, 0, "sprop-sps", false,
        "rtph265depay", "h265parse name=gate", "avdec_h265 output-corrupt=false", kContainers | kH265, 0, 0,
        "?h265timestamper", "config-interval=-1 ! video/x-h265,stream-format=byte-stream,alignment=au"},
    {RTP_CODEC_MP4V_ES, "mp4v", "MP4V-ES", "", "video", true, 90000, 96, 0, nullptr, false,
        "rtpmp4vdepay", "mpeg4videoparse name=gate config-interval=-1", "avdec_mpeg4 output-corrupt=false",
        kContainers, 0, 0, "", ""},
    {RTP_CODEC_JPEG, "jpeg", "JPEG", "", "video", true, 90000, 26, 0, nullptr, false,
        "rtpjpegdepay", "jpegparse name=gate", "jpegdec", kMkv | kMjpeg, 0, 0, "", ""},
    {RTSPTAP_CODEC_VP8, "vp8", "VP8", "", "video", true, 90000, 96, 0, nullptr, false,
        "rtpvp8depay name=gate", "", "vp8dec", kMkv | kMp4, 0, 0, "", ""},
    {RTSPTAP_CODEC_VP9, "vp9", "VP9", "", "video", true, 90000, 96, 0, nullptr, false,
        "rtpvp9depay", "vp9parse name=gate", "vp9dec", kMkv | kMp4, 0, 0, "", ""},
    {RTSPTAP_CODEC_AV1, "av1", "AV1", "", "video", true, 90000, 96, 0, nullptr, false,
        "rtpav1depay", "av1parse name=gate", "av1dec", kMkv | kMp4, 0, 0, "", ""},
    {RTSPTAP_CODEC_MPV, "mpv", "MPV", "", "video", true, 90000, 32, 0, nullptr, false,
        "rtpmpvdepay", "mpegvideoparse name=gate", "avdec_mpeg2video", kMkv | kTs, 0, 0, "", ""},
    {RTP_CODEC_MP2T, "mp2t", "MP2T", "", "video", false, 90000, 33, 0, nullptr, false,
        "rtpmp2tdepay", "tsparse", "decodebin", kTs, 0, 0, "", ""},
    {RTP_CODEC_PCMA, "pcma", "PCMA", "", "audio", false, 8000, 8, 1, nullptr, false,
        "rtppcmadepay", "", "alawdec", kMkv | kWav, 0, kAnew, "", ""},
    {RTP_CODEC_PCMU, "pcmu", "PCMU", "", "audio", false, 8000, 0, 1, nullptr, false,
        "rtppcmudepay", "", "mulawdec", kMkv | kWav, 0, kAnew, "", ""},
    {RTP_CODEC_L16, "l16", "L16", "", "audio", false, 44100, 11, 1, nullptr, false,
        "rtpL16depay", "", "", 0, kMkv | kWav, kAnew, "", ""},
    {RTP_CODEC_MPEG4_GENERIC, "aac", "MPEG4-GENERIC", "", "audio", false, 44100, 96, 0, nullptr, true,
        "rtpmp4gdepay", "aacparse", "avdec_aac", kContainers | kAac, kWav, 0, "", ""},
    {RTP_CODEC_G726, "g726", "G726", "-32", "audio", false, 8000, 96, 0, nullptr, false,
        "rtpg726depay", "", "avdec_g726", 0, kMkv | kWav, kAnew, "", ""},
    {RTP_CODEC_MPA, "mpa", "MPA", "", "audio", false, 90000, 14, 0, nullptr, false,
        "rtpmpadepay", "mpegaudioparse", "MPEGAUDIO", kMkv | kTs, kWav, kMp4 | kAac, "", ""},
    {RTSPTAP_CODEC_OPUS, "opus", "OPUS", "", "audio", false, 48000, 96, 2, nullptr, false,
        "rtpopusdepay", "opusparse", "opusdec", kContainers, kWav, kAac, "", ""},
    {RTSPTAP_CODEC_G722, "g722", "G722", "", "audio", false, 8000, 9, 1, nullptr, false,
        "rtpg722depay", "", "avdec_g722", 0, kMkv | kWav, kAnew, "", ""},
    {RTSPTAP_CODEC_G723, "g723", "G723", "", "audio", false, 8000, 4, 1, nullptr, false,
        "rtpg723depay", "", "avdec_g723_1", 0, kMkv | kWav, kAnew, "", ""},
    {RTSPTAP_CODEC_G729, "g729", "G729", "", "audio", false, 8000, 18, 1, nullptr, false,
        "rtpg729depay", "", "avdec_g729", 0, kMkv | kWav, kAnew, "", ""},
    {RTSPTAP_CODEC_GSM, "gsm", "GSM", "", "audio", false, 8000, 3, 1, nullptr, false,
        "rtpgsmdepay", "", "gsmdec", 0, kMkv | kWav, kAnew, "", ""},
    {RTSPTAP_CODEC_SPEEX, "speex", "SPEEX", "", "audio", false, 16000, 96, 1, nullptr, false,
        "rtpspeexdepay", "", "speexdec", 0, kMkv | kWav, kAnew, "", ""},
    {RTSPTAP_CODEC_L8, "l8", "L8", "", "audio", false, 8000, 96, 1, nullptr, false,
        "rtpL8depay", "", "", 0, kMkv | kWav, kAnew, "", ""},
    {RTSPTAP_CODEC_L20, "l20", "L20", "", "audio", false, 48000, 96, 1, nullptr, false,
        "", "", "", 0, 0, 0, "", ""},
    {RTSPTAP_CODEC_L24, "l24", "L24", "", "audio", false, 48000, 96, 1, nullptr, false,
        "rtpL24depay", "", "", 0, kMkv | kWav, kAnew, "", ""},
    {RTSPTAP_CODEC_MP4A_LATM, "latm", "MP4A-LATM", "", "audio", false, 90000, 96, 0, nullptr, true,
        "rtpmp4adepay", "aacparse", "avdec_aac", kContainers | kAac, kWav, 0, "", ""},
    {RTSPTAP_CODEC_AC3, "ac3", "AC3", "", "audio", false, 48000, 96, 0, nullptr, false,
        "rtpac3depay", "ac3parse", "avdec_ac3", kContainers, kWav, kAac, "", ""},
    {RTSPTAP_CODEC_ONVIF_METADATA, "onvif", "VND.ONVIF.METADATA", "", "application", false, 90000, 96, 0, nullptr, false,
        "", "", "", 0, 0, 0, "", ""},
    {RTSPTAP_CODEC_T140, "t140", "T140", "", "text", false, 1000, 96, 0, nullptr, false,
        "", "", "", 0, 0, 0, "", ""},
    {RTSPTAP_CODEC_SMPTE291, "smpte291", "SMPTE291", "", "video", false, 90000, 96, 0, nullptr, false,
        "", "", "", 0, 0, 0, "", ""},
    // Of any other; it has neither name nor payload type of its own.
    {0, "", "", "", "application", false, 90000, 96, 0, nullptr, false, "", "", "", 0, 0, 0, "", ""},
};
// clang-format on

constexpr const Codec *kUnknown = std::end(kCodecs) - 1;

// Null when there is none.
template <typename Matches> const Codec *Find(Matches matches) {
    const auto *const found = std::find_if(std::begin(kCodecs), kUnknown, matches);
    return found == kUnknown ? nullptr : found;
}

} // namespace

const Codec *CodecOf(int32_t codecType) {
    const Codec *const codec = Find([codecType](const Codec &row) { return row.type == codecType; });
    return codec == nullptr ? kUnknown : codec;
}

const Codec *CodecOfPayloadType(int32_t payloadType) {
    constexpr int32_t kStereo = 10; // L16 has one more
    if (payloadType == kStereo) return CodecOf(RTP_CODEC_L16);
    return Find(
        [payloadType](const Codec &codec) { return codec.payloadType < 96 && codec.payloadType == payloadType; });
}

int32_t CodecTypeOfName(std::string_view name) {
    const Codec *const codec = Find([name](const Codec &row) { return SameText(name, row.name); });
    return codec == nullptr ? 0 : codec->type;
}

int32_t CodecTypeOfEncoding(std::string_view name) {
    const Codec *const codec = Find([name](const Codec &row) {
        const std::string_view known = row.encodingName;
        return SameText(*row.variant != '\0' ? name.substr(0, known.size()) : name, known);
    });
    return codec == nullptr ? 0 : codec->type;
}

std::vector<std::string> CodecNames(std::string_view medium) {
    std::vector<std::string> names;
    for (const Codec *codec = std::begin(kCodecs); codec != kUnknown; ++codec)
        if (medium.empty() || codec->medium == medium) names.push_back(codec->name);
    return names;
}

} // namespace tool
