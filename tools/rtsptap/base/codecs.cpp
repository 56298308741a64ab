#include "base/codecs.h"

#include "base/text.h"
#include "rtsptap.h"

#include <algorithm>
#include <iterator>

namespace tool {
namespace {

constexpr unsigned kAnew = kMp4 | kTs | kAac; // where sound that they do not hold becomes AAC

// clang-format off
constexpr Codec kCodecs[] = {
    // type, name, encoding name, variant, video, frames, clock, payload type, channels, parameter sets, needs parameters
    //     depayloader, parser, decoder, stored, sampled, encoded, in MP4, in streams
    {RTP_CODEC_H264, "h264", "H264", "", true, true, 90000, 96, 0, "sprop-parameter-sets", false,
        "rtph264depay", "h264parse name=gate", "avdec_h264 output-corrupt=false", kContainers | kH264, 0, 0,
        "TIMESTAMPS", "config-interval=-1 ! video/x-h264,stream-format=byte-stream,alignment=au"},
    {RTP_CODEC_MP4V_ES, "mp4v", "MP4V-ES", "", true, true, 90000, 96, 0, nullptr, false,
        "rtpmp4vdepay", "mpeg4videoparse name=gate config-interval=-1", "avdec_mpeg4 output-corrupt=false",
        kContainers, 0, 0, "", ""},
    {RTP_CODEC_JPEG, "jpeg", "JPEG", "", true, true, 90000, 26, 0, nullptr, false,
        "rtpjpegdepay", "jpegparse name=gate", "jpegdec", kMkv | kMjpeg, 0, 0, "", ""},
    {RTP_CODEC_MP2T, "mp2t", "MP2T", "", true, false, 90000, 33, 0, nullptr, false,
        "rtpmp2tdepay", "tsparse", "decodebin", kTs, 0, 0, "", ""},
    {RTP_CODEC_PCMA, "pcma", "PCMA", "", false, false, 8000, 8, 1, nullptr, false,
        "rtppcmadepay", "", "alawdec", kMkv | kWav, 0, kAnew, "", ""},
    {RTP_CODEC_PCMU, "pcmu", "PCMU", "", false, false, 8000, 0, 1, nullptr, false,
        "rtppcmudepay", "", "mulawdec", kMkv | kWav, 0, kAnew, "", ""},
    {RTP_CODEC_L16, "l16", "L16", "", false, false, 44100, 11, 1, nullptr, false,
        "rtpL16depay", "", "", 0, kMkv | kWav, kAnew, "", ""},
    {RTP_CODEC_MPEG4_GENERIC, "aac", "MPEG4-GENERIC", "", false, false, 44100, 96, 0, nullptr, true,
        "rtpmp4gdepay", "aacparse", "avdec_aac", kContainers | kAac, kWav, 0, "", ""},
    {RTP_CODEC_G726, "g726", "G726", "-32", false, false, 8000, 96, 0, nullptr, false,
        "rtpg726depay", "", "avdec_g726", 0, kMkv | kWav, kAnew, "", ""},
    {RTP_CODEC_MPA, "mpa", "MPA", "", false, false, 90000, 14, 0, nullptr, false,
        "rtpmpadepay", "mpegaudioparse", "MPEGAUDIO", kMkv | kTs, kWav, kMp4 | kAac, "", ""},
};
// clang-format on

template <typename Matches> const Codec *Find(Matches matches) {
    const auto *const found = std::find_if(std::begin(kCodecs), std::end(kCodecs), matches);
    return found == std::end(kCodecs) ? nullptr : found;
}

} // namespace

const Codec *CodecOf(int32_t codecType) {
    return Find([codecType](const Codec &codec) { return codec.type == codecType; });
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

std::vector<std::string> CodecNames(bool video) {
    std::vector<std::string> names;
    for (const Codec &codec : kCodecs)
        if (codec.isVideo == video) names.push_back(codec.name);
    return names;
}

} // namespace tool
