#include "media/media_pipeline.h"

namespace tool {
namespace {

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

struct EncoderDelay {
    const uint32_t samples;
    GstClockTime first = GST_CLOCK_TIME_NONE; // of the sound
};

GstPadProbeReturn TakeDelayOut(GstPad *pad, GstPadProbeInfo *info, gpointer data) {
    auto &delay = *static_cast<EncoderDelay *>(data);
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

bool MediaPipeline::HasElement(const char *name) {
    const GstOwned<GstElementFactory> factory(gst_element_factory_find(name));
    return factory != nullptr;
}

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
    gst_pad_add_probe(pad.get(), GST_PAD_PROBE_TYPE_BUFFER, TakeDelayOut, new EncoderDelay{samples},
                      [](gpointer delay) { delete static_cast<EncoderDelay *>(delay); });
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

} // namespace tool
