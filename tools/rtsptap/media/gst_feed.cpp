#include "media/gst_feed.h"

#include "base/text.h"
#include "media/look.h"

#include <algorithm>
#include <utility>

namespace tool {
namespace {

constexpr std::size_t kMostPerFrame = 8192;        // packets; more are no frame but a sender without markers
constexpr std::size_t kMostKept = 65536;           // packets before there is a pipeline
constexpr guint64 kChokedBytes = 64 * 1024 * 1024; // waiting in the pipeline

// The caps that depayloaders know, parameters as texts in lower case.
GstMini<GstCaps> MakeCaps(const StreamFormat &format, int payloadType) {
    GstMini<GstCaps> caps(gst_caps_new_simple("application/x-rtp", "media", G_TYPE_STRING, format.codec->medium,
                                              "payload", G_TYPE_INT, payloadType, "clock-rate", G_TYPE_INT,
                                              format.clockRate, "encoding-name", G_TYPE_STRING,
                                              format.encodingName.c_str(), nullptr));
    if (format.channels > 0)
        gst_caps_set_simple(caps.get(), "encoding-params", G_TYPE_STRING, std::to_string(format.channels).c_str(),
                            nullptr);
    GstStructure *structure = gst_caps_get_structure(caps.get(), 0);
    for (const auto &[name, value] : SplitParameters(format.parameters))
        if (gst_structure_has_field(structure, name.c_str()) == FALSE &&
            g_utf8_validate(value.c_str(), -1, nullptr))
            gst_structure_set(structure, name.c_str(), G_TYPE_STRING, value.c_str(), nullptr);
    return caps;
}

} // namespace

RtpFeed::RtpFeed(StreamFormat format, Clock::time_point begin)
    : format_(std::move(format)), time_(format_.clockRate, begin) {}

void RtpFeed::BeginSession(const OpenedSession &opened, std::chrono::milliseconds window,
                           const std::shared_ptr<SessionStart> &start) {
    const bool isOrdered = opened.transport == Transport::kTcp;
    order_.Begin(isOrdered ? std::chrono::milliseconds(0) : window);
    Release({});
    window_ = std::max(window_, window);
    session_ = opened.session.get();
    const auto found = opened.firstTimestamps.find(format_.stream.number);
    time_.BeginSession(start, found != opened.firstTimestamps.end() ? std::optional(found->second) : std::nullopt);
}

void RtpFeed::Take(const RTPStreamData &packet, Clock::time_point arrival) {
    if (packet.payloadLength > packet.packetLength) return; // its headers claim more than arrived
    hasParameterSets_ = hasParameterSets_ || LookInto(format_.codec->type, packet).hasParameterSets != 0;
    HeldPacket held = CopyOf(packet, arrival);
    held.sent = session_->SentAt(format_.stream.number, packet);
    order_.Put(std::move(held));
    Release(arrival);
}

void RtpFeed::Release(Clock::time_point now) {
    while (const std::optional<HeldPacket> packet = order_.Next(now)) TakeNext(*packet);
}

void RtpFeed::TakeNext(const HeldPacket &packet) {
    std::chrono::nanoseconds moved;
    const auto time = static_cast<GstClockTime>(time_.Of(packet, !open_, moved).count());
    if (moved.count() != 0) MoveKept(moved);
    if (!frame_.empty() && (packet.timestamp != timestamp_ || frame_.size() >= kMostPerFrame)) Deliver();
    GstMini<GstBuffer> buffer(gst_buffer_new_memdup(packet.bytes.data(), packet.bytes.size()));
    GST_BUFFER_PTS(buffer.get()) = time;
    frame_.push_back(std::move(buffer));
    if (!std::exchange(taken_, true)) begun_ = time;
    payloadType_ = packet.payloadType;
    timestamp_ = packet.timestamp;
    reached_ = time;
    if (!format_.codec->hasFrames || packet.marker) Deliver();
}

void RtpFeed::MoveKept(std::chrono::nanoseconds by) {
    const auto move = [by](GstClockTime &time) {
        time = static_cast<GstClockTime>(std::max<int64_t>(static_cast<int64_t>(time) + by.count(), 0));
    };
    for (const GstMini<GstBuffer> &buffer : ready_) move(GST_BUFFER_PTS(buffer.get()));
    for (const GstMini<GstBuffer> &buffer : frame_) move(GST_BUFFER_PTS(buffer.get()));
    move(begun_);
}

void RtpFeed::Deliver() {
    for (GstMini<GstBuffer> &buffer : frame_) {
        if (open_)
            gst_app_src_push_buffer(GST_APP_SRC(appsrc_.get()), buffer.release());
        else
            ready_.push_back(std::move(buffer));
    }
    frame_.clear();
    while (ready_.size() > kMostKept) ready_.pop_front();
}

void RtpFeed::ForgetBefore(GstClockTime time) {
    while (!ready_.empty() && GST_BUFFER_PTS(ready_.front().get()) < time) ready_.pop_front();
}

void RtpFeed::Attach(GstOwned<GstElement> appsrc) {
    const GstMini<GstCaps> caps = MakeCaps(format_, payloadType_);
    g_object_set(appsrc.get(), "caps", caps.get(), "format", GST_FORMAT_TIME, "max-bytes", guint64{0}, nullptr);
    appsrc_ = std::move(appsrc);
}

void RtpFeed::Open() {
    open_ = true;
    for (GstMini<GstBuffer> &buffer : ready_) gst_app_src_push_buffer(GST_APP_SRC(appsrc_.get()), buffer.release());
    ready_.clear();
}

void RtpFeed::SkipTo(GstClockTime time) {
    if (!open_ || time <= reached_) return;
    gst_element_send_event(appsrc_.get(), gst_event_new_gap(reached_, time - reached_));
    reached_ = time;
}

bool RtpFeed::IsChoked() const {
    return open_ && gst_app_src_get_current_level_bytes(GST_APP_SRC(appsrc_.get())) > kChokedBytes;
}

// A picture that lacks packets spoils the end of a recording; sound has a hole at most, and a transport stream is
// more than its pictures.
void RtpFeed::Flush() {
    if (format_.codec->hasFrames)
        order_.FlushToGap();
    else
        order_.Flush();
    Release({});
}

bool RtpFeed::LacksParameterSets() const { return !hasParameterSets_ && tool::LacksParameterSets(format_); }

std::string RtpFeed::Lateness() const {
    if (order_.Late() == 0) return "";
    return NameOf(format_.stream) + ": " + std::to_string(order_.Late()) + " packets came more than " +
           TimeText(window_) + " behind their turn and are left out; --latency has more patience";
}

void RtpFeed::End() {
    frame_.clear();
    if (open_) gst_app_src_end_of_stream(GST_APP_SRC(appsrc_.get()));
}

} // namespace tool
