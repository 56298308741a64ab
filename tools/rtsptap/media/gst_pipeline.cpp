#include "media/gst_pipeline.h"

#include "rtsptap_extended.h"

#include <algorithm>
#include <string_view>

namespace tool {
namespace {

// ---- Descriptions

constexpr std::string_view kGate = "name=gate";       // where pictures wait for the first key frame
constexpr std::string_view kEncoder = "name=encoder"; // its delay is taken out again; the stream's number follows

bool HasElement(const char *name) {
    const GstOwned<GstElementFactory> factory(gst_element_factory_find(name));
    return factory != nullptr;
}

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
        if (HasElement(encoder.factory)) return encoder;
    return kEncoders[0];
}

// What stands before the file of a format that is no container.
const char *BareFile(FileFormat format) {
    if (format == kWav) return " ! wavenc ! ";
    return format == kAac ? " ! audio/mpeg,stream-format=adts ! " : " ! ";
}

// Behind a question mark: what tells when to decode, which only this container needs told and RTP does not tell.
// MPEGAUDIO: the decoder that there is.
std::string Expanded(const std::string &element) {
    if (element.starts_with('?')) return HasElement(element.c_str() + 1) ? element.substr(1) : "";
    if (element == "MPEGAUDIO") return HasElement("mpg123audiodec") ? "mpg123audiodec" : "avdec_mp3";
    return element;
}

std::string Linked(const std::vector<std::string> &elements) {
    std::string chain;
    for (const std::string &element : elements)
        if (const std::string text = Expanded(element); !text.empty()) chain += (chain.empty() ? "" : " ! ") + text;
    return chain;
}

// From RTP packets to what the file holds: the codec as it is where that is possible; only sound is ever encoded
// anew. Samples are what every player knows.
std::string ChainFor(const Codec &codec, FileFormat format) {
    if ((codec.stored & format) != 0) {
        const std::string parsed = Linked({codec.depayloader, codec.parser});
        if (format == kMp4) return Linked({parsed, codec.inMp4});
        return format == kMkv || *codec.inStream == '\0' ? parsed : parsed + " " + codec.inStream;
    }
    const std::string decoded = Linked({codec.depayloader, codec.parser, codec.decoder, "audioconvert"});
    const char *const samples = codec.type == RTSPTAP_CODEC_L24 ? "S24LE" : "S16LE";
    if ((codec.sampled & format) != 0) return decoded + " ! audio/x-raw,format=" + samples;
    return decoded + " ! audioresample ! " + PresentEncoder().factory + " " + std::string(kEncoder) + " ! aacparse";
}

std::string Destination(const OutputFile &file) {
    if (file.path.empty()) return "fdsink fd=" + std::to_string(fileno(file.standardOutput));
    return "filesink name=out";
}

// Of MP4 and its elder brother, which the same players read, only the other one has VP8 here.
std::string MuxerFor(const Muxer &row, const std::vector<StreamFormat> &streams) {
    const bool hasVp8 = std::any_of(streams.begin(), streams.end(), [](const StreamFormat &format) {
        return format.codec->type == RTSPTAP_CODEC_VP8;
    });
    return row.format == kMp4 && hasVp8 ? "qtmux" : row.factory;
}

std::string DescribeMuxer(const OutputFile &file, const std::vector<StreamFormat> &streams) {
    for (const Muxer &row : kMuxers) {
        if (row.format != file.format) continue;
        const std::string factory = MuxerFor(row, streams);
        if (file.split.count() == 0)
            return factory + " name=mux " + (file.path.empty() ? row.toPipe : row.toFile) + " ! " +
                   Destination(file);
        return std::string("splitmuxsink name=out muxer-factory=") + factory +
               " max-size-time=" + std::to_string(std::chrono::nanoseconds(file.split).count());
    }
    return "";
}

// ---- Running

Outcome OutcomeOfError(GError *error) {
    const std::string text = error != nullptr ? error->message : "GStreamer failed";
    if (error != nullptr) g_error_free(error);
    return {ExitCode::kOutputFailed, text};
}

GstPadProbeReturn PassKeyFrame(GstPad *, GstPadProbeInfo *info, gpointer seen) {
    GstBuffer *buffer = GST_PAD_PROBE_INFO_BUFFER(info);
    if (GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT)) return GST_PAD_PROBE_DROP;
    *static_cast<std::atomic<GstClockTime> *>(seen) = GST_BUFFER_PTS_IS_VALID(buffer) ? GST_BUFFER_PTS(buffer) : 0;
    return GST_PAD_PROBE_REMOVE;
}

struct Delay {
    const uint32_t samples;
    GstClockTime first = GST_CLOCK_TIME_NONE; // of the sound
};

GstPadProbeReturn TakeDelayOut(GstPad *pad, GstPadProbeInfo *info, gpointer data) {
    auto &delay = *static_cast<Delay *>(data);
    const GstMini<GstCaps> caps(gst_pad_get_current_caps(pad));
    int rate = 0;
    if (caps == nullptr || gst_structure_get_int(gst_caps_get_structure(caps.get(), 0), "rate", &rate) == FALSE)
        return GST_PAD_PROBE_OK;
    GstBuffer *buffer = gst_buffer_make_writable(GST_PAD_PROBE_INFO_BUFFER(info));
    GST_PAD_PROBE_INFO_DATA(info) = buffer;
    const GstClockTime time = GST_BUFFER_PTS(buffer);
    const GstClockTime late = gst_util_uint64_scale_int(delay.samples, GST_SECOND, rate);
    if (!GST_CLOCK_TIME_IS_VALID(time) || time < late) return GST_PAD_PROBE_OK;
    if (delay.first == GST_CLOCK_TIME_NONE) delay.first = time;
    GST_BUFFER_PTS(buffer) = time - late;
    GST_BUFFER_DTS(buffer) = GST_CLOCK_TIME_NONE;
    return time - late < delay.first ? GST_PAD_PROBE_DROP : GST_PAD_PROBE_OK;
}

} // namespace

MediaPipeline::~MediaPipeline() { Stop(); }

Outcome MediaPipeline::Build(const std::string &description) {
    GError *error = nullptr;
    GstElement *built = gst_parse_launch_full(description.c_str(), nullptr, GST_PARSE_FLAG_FATAL_ERRORS, &error);
    if (built == nullptr) return OutcomeOfError(error);
    pipeline_.reset(GST_ELEMENT(gst_object_ref_sink(built)));
    bus_.reset(gst_element_get_bus(built));
    return {};
}

Outcome MediaPipeline::Start() {
    if (gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING) != GST_STATE_CHANGE_FAILURE) return {};
    if (Outcome trouble = Trouble(); !trouble.IsOk()) return trouble;
    return OutcomeOfError(nullptr);
}

GstOwned<GstElement> MediaPipeline::Element(const char *name) const {
    return GstOwned<GstElement>(gst_bin_get_by_name(GST_BIN(pipeline_.get()), name));
}

void MediaPipeline::HoldUntilKeyFrame() {
    const GstOwned<GstElement> gate = Element("gate");
    if (gate == nullptr) return;
    const GstOwned<GstPad> pad(gst_element_get_static_pad(gate.get(), "src"));
    gst_pad_add_probe(pad.get(), GST_PAD_PROBE_TYPE_BUFFER, PassKeyFrame, &keyFrame_, nullptr);
}

void MediaPipeline::TakeOutDelay(const std::string &encoder, uint32_t samples) {
    const GstOwned<GstElement> element = Element(encoder.c_str());
    if (element == nullptr) return;
    const GstOwned<GstPad> pad(gst_element_get_static_pad(element.get(), "src"));
    gst_pad_add_probe(pad.get(), GST_PAD_PROBE_TYPE_BUFFER, TakeDelayOut, new Delay{samples},
                      [](gpointer delay) { delete static_cast<Delay *>(delay); });
}

Outcome MediaPipeline::Trouble() {
    bool ended = false;
    return Look(0, ended);
}

Outcome MediaPipeline::WaitForEnd(std::chrono::milliseconds limit) {
    bool ended = false;
    Outcome outcome = Look(static_cast<GstClockTime>(limit.count()) * GST_MSECOND, ended);
    if (outcome.IsOk() && !ended) return {ExitCode::kOutputFailed, "it could not be completed in time"};
    return outcome;
}

void MediaPipeline::Stop() {
    if (pipeline_ != nullptr) gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
    bus_.reset();
    pipeline_.reset();
}

Outcome MediaPipeline::Look(GstClockTime limit, bool &ended) {
    const auto types = static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR);
    const GstMini<GstMessage> message(gst_bus_timed_pop_filtered(bus_.get(), limit, types));
    if (message == nullptr) return {};
    ended = GST_MESSAGE_TYPE(message.get()) == GST_MESSAGE_EOS;
    if (ended) return {};
    GError *error = nullptr;
    gst_message_parse_error(message.get(), &error, nullptr);
    return OutcomeOfError(error);
}

bool CanHold(FileFormat format, const Codec &codec) {
    return ((codec.stored | codec.sampled | codec.encoded) & format) != 0;
}

std::string MissingElement(FileFormat format, const Codec &codec) {
    const bool isDecoded = (codec.stored & format) == 0;
    for (const char *const text : {codec.depayloader, codec.parser, isDecoded ? codec.decoder : ""}) {
        const std::string element = Expanded(text).substr(0, std::string_view(text).find(' '));
        if (!element.empty() && !HasElement(element.c_str())) return element;
    }
    return "";
}

uint32_t EncoderDelay() { return PresentEncoder().delay; }

std::string DescribeRecording(const OutputFile &file, const std::vector<StreamFormat> &streams) {
    const bool isTransportStream = streams.front().codec->type == RTP_CODEC_MP2T;
    const bool muxes = (file.format & kContainers) != 0 && !isTransportStream;
    std::string description = muxes ? DescribeMuxer(file, streams) : "";
    bool hasVideo = false;
    for (const StreamFormat &format : streams) {
        std::string chain = ChainFor(*format.codec, file.format);
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
        else if (format.codec->IsVideo())
            description += hasVideo ? " ! out.video_aux_%u" : " ! out.video";
        else
            description += " ! out.audio_%u";
        hasVideo |= format.codec->IsVideo();
    }
    return description;
}

std::string DescribePicture(FileFormat format, const Codec &codec) {
    const char *const encoder = format == kPng ? "pngenc snapshot=true" : "jpegenc quality=92 snapshot=true";
    const char *const parser =
        codec.type == RTP_CODEC_JPEG ? "" : codec.parser; // each is whole, none is waited for
    return Linked({"appsrc name=feed", codec.depayloader, parser, codec.decoder, "videoconvert", encoder,
                   "appsink name=out sync=false max-buffers=1"});
}

} // namespace tool
