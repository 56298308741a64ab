#include "media/media_routes.h"

#include "media/media_pipeline.h"

#include <string_view>
#include <unistd.h>

namespace tool {
namespace {

constexpr std::string_view kGate = "name=gate";       // where pictures wait for the first key frame
constexpr std::string_view kEncoder = "name=encoder"; // its delay is taken out again; the stream's number follows

struct Route {
    int32_t codecType;
    unsigned formats;
    const char *chain; // words in capitals: see Expanded
};

// Codecs go into a file as they are where it holds them; only audio is ever encoded anew.
constexpr Route kRoutes[] = {
    {RTP_CODEC_H264, kMp4, "rtph264depay ! h264parse name=gate TIMESTAMPS"},
    {RTP_CODEC_H264, kMkv, "rtph264depay ! h264parse name=gate"},
    {RTP_CODEC_H264, kTs | kH264,
     "rtph264depay ! h264parse name=gate config-interval=-1 ! video/x-h264,stream-format=byte-stream,alignment=au"},
    {RTP_CODEC_MP4V_ES, kContainers, "rtpmp4vdepay ! mpeg4videoparse name=gate config-interval=-1"},
    {RTP_CODEC_JPEG, kMkv | kMjpeg, "rtpjpegdepay ! jpegparse name=gate"},
    {RTP_CODEC_MP2T, kTs, "rtpmp2tdepay ! tsparse"},
    {RTP_CODEC_MPEG4_GENERIC, kContainers | kAac, "rtpmp4gdepay ! aacparse"},
    {RTP_CODEC_MPEG4_GENERIC, kWav, "rtpmp4gdepay ! aacparse ! avdec_aac SAMPLES"},
    {RTP_CODEC_PCMU, kMkv | kWav, "rtppcmudepay"},
    {RTP_CODEC_PCMU, kMp4 | kTs | kAac, "rtppcmudepay ! mulawdec ENCODE"},
    {RTP_CODEC_PCMA, kMkv | kWav, "rtppcmadepay"},
    {RTP_CODEC_PCMA, kMp4 | kTs | kAac, "rtppcmadepay ! alawdec ENCODE"},
    {RTP_CODEC_L16, kMkv | kWav, "rtpL16depay SAMPLES"},
    {RTP_CODEC_L16, kMp4 | kTs | kAac, "rtpL16depay ENCODE"},
    {RTP_CODEC_G726, kMkv | kWav, "rtpg726depay ! avdec_g726 SAMPLES"},
    {RTP_CODEC_G726, kMp4 | kTs | kAac, "rtpg726depay ! avdec_g726 ENCODE"},
    {RTP_CODEC_MPA, kMkv | kTs, "rtpmpadepay ! mpegaudioparse"},
    {RTP_CODEC_MPA, kMp4 | kAac, "rtpmpadepay ! mpegaudioparse ! MPEGAUDIO ENCODE"},
    {RTP_CODEC_MPA, kWav, "rtpmpadepay ! mpegaudioparse ! MPEGAUDIO SAMPLES"},
};

constexpr Route kPictureRoutes[] = {
    {RTP_CODEC_H264, 0, "rtph264depay ! h264parse name=gate ! avdec_h264 output-corrupt=false"},
    {RTP_CODEC_MP4V_ES, 0, "rtpmp4vdepay ! mpeg4videoparse name=gate ! avdec_mpeg4 output-corrupt=false"},
    {RTP_CODEC_JPEG, 0, "rtpjpegdepay ! jpegdec"},
    {RTP_CODEC_MP2T, 0, "rtpmp2tdepay ! tsparse ! decodebin"},
};

// The muxers write what a program that is killed leaves readable, and complete it when it ends.
struct Muxer {
    FileFormat format;
    const char *factory;
    const char *toFile;
    const char *toPipe;
};

constexpr Muxer kMuxers[] = {
    {kMp4, "mp4mux", "fragment-duration=2000 fragment-mode=first-moov-then-finalise",
     "fragment-duration=1000 streamable=true"},
    {kMkv, "matroskamux", "offset-to-zero=true", "offset-to-zero=true streamable=true"},
    {kTs, "mpegtsmux", "", ""},
};

// By how much the sound is late that decoders give out, for what encoders put before it; in samples.
struct Encoder {
    const char *factory;
    uint32_t delay;
};

constexpr Encoder kEncoders[] = {{"avenc_aac", 1024}, {"voaacenc", 1600}, {"fdkaacenc", 2048}, {"faac", 1024}};

const Encoder &PresentEncoder() {
    for (const Encoder &encoder : kEncoders)
        if (MediaPipeline::HasElement(encoder.factory)) return encoder;
    return kEncoders[0];
}

// What stands before the file of a format that is no container.
const char *BareFile(FileFormat format) {
    if (format == kWav) return " ! wavenc ! ";
    return format == kAac ? " ! audio/mpeg,stream-format=adts ! " : " ! ";
}

const char *FirstPresent(std::initializer_list<const char *> names) {
    for (const char *name : names)
        if (MediaPipeline::HasElement(name)) return name;
    return *names.begin();
}

// TIMESTAMPS: when to decode, which only this container needs told and RTP does not tell. SAMPLES: what every
// player knows. ENCODE: samples to AAC.
std::string Expanded(std::string chain) {
    const std::pair<std::string, std::string> words[] = {
        {"TIMESTAMPS", MediaPipeline::HasElement("h264timestamper") ? "! h264timestamper" : ""},
        {"MPEGAUDIO", FirstPresent({"mpg123audiodec", "avdec_mp3"})},
        {"SAMPLES", "! audioconvert ! audio/x-raw,format=S16LE"},
        {"ENCODE", std::string("! audioconvert ! audioresample ! ") + PresentEncoder().factory + " " +
                       std::string(kEncoder) + " ! aacparse"},
    };
    for (const auto &[word, elements] : words)
        if (const std::size_t at = chain.find(word); at != std::string::npos)
            chain.replace(at, word.size(), elements);
    return chain;
}

std::string Destination(const OutputFile &file) {
    if (file.path.empty()) return "fdsink fd=" + std::to_string(fileno(file.standardOutput));
    return "filesink name=out";
}

std::string DescribeMuxer(const OutputFile &file) {
    for (const Muxer &row : kMuxers) {
        if (row.format != file.format) continue;
        if (file.split.count() == 0)
            return std::string(row.factory) + " name=mux " + (file.path.empty() ? row.toPipe : row.toFile) + " ! " +
                   Destination(file);
        return std::string("splitmuxsink name=out muxer-factory=") + row.factory +
               " max-size-time=" + std::to_string(std::chrono::nanoseconds(file.split).count());
    }
    return "";
}

} // namespace

std::optional<std::string> ChainFor(int32_t codecType, FileFormat format) {
    for (const Route &row : kRoutes)
        if (row.codecType == codecType && (row.formats & format) != 0) return Expanded(row.chain);
    return std::nullopt;
}

std::optional<std::string> PictureChainFor(int32_t codecType) {
    for (const Route &row : kPictureRoutes)
        if (row.codecType == codecType) return row.chain;
    return std::nullopt;
}

uint32_t EncoderDelay() { return PresentEncoder().delay; }

std::string DescribeRecording(const OutputFile &file, const std::vector<StreamFormat> &streams) {
    const bool isTransportStream = streams.front().stream.codecType == RTP_CODEC_MP2T;
    const bool muxes = (file.format & kContainers) != 0 && !isTransportStream;
    std::string description = muxes ? DescribeMuxer(file) : "";
    bool hasVideo = false;
    for (const StreamFormat &format : streams) {
        std::string chain = ChainFor(format.stream.codecType, file.format).value_or("");
        const std::size_t gate = chain.find(kGate);
        if (hasVideo && gate != std::string::npos)
            chain.erase(gate, kGate.size()); // only the first one is waited for
        const std::string number = std::to_string(format.stream.number);
        if (const std::size_t encoder = chain.find(kEncoder); encoder != std::string::npos)
            chain.insert(encoder + kEncoder.size(), number);
        description += " appsrc name=feed" + number + " ! " + chain;
        if (!muxes)
            description += BareFile(file.format) + Destination(file);
        else if (file.split.count() == 0)
            description += " ! mux.";
        else if (format.isVideo)
            description += hasVideo ? " ! out.video_aux_%u" : " ! out.video";
        else
            description += " ! out.audio_%u";
        hasVideo |= format.isVideo;
    }
    return description;
}

} // namespace tool
