#include "views/arrivals.h"

#include "media/key_frame.h"

#include <algorithm>

namespace tool {
namespace {

void NotePicture(std::span<const uint8_t> payload, ProbedStream &probed) {
    constexpr std::size_t kJpegHeaderBytes = 8; // RFC 2435, 3.1: the last two are the size in units of 8
    if (probed.picture) return;
    const std::span<const uint8_t> sps = probed.stream.codecType == RTP_CODEC_H264 ? FindSps(payload) : payload;
    if (probed.stream.codecType == RTP_CODEC_H264 && !sps.empty()) probed.picture = ParseSps(sps);
    if (probed.stream.codecType == RTP_CODEC_JPEG && payload.size() >= kJpegHeaderBytes && payload[6] != 0)
        probed.picture = PictureFormat{"", "", payload[6] * 8U, payload[7] * 8U};
}

} // namespace

void Arrivals::Begin(std::vector<ProbedStream> streams) {
    const std::lock_guard guard(lock_);
    streams_ = std::move(streams);
    begin_ = Clock::now();
}

void Arrivals::Note(const Stream &stream, const RTPStreamData &packet, Clock::time_point arrival) {
    const std::lock_guard guard(lock_);
    const auto sincePlay = std::chrono::duration_cast<std::chrono::microseconds>(arrival - begin_);
    const std::chrono::microseconds time = std::max(sincePlay, std::chrono::microseconds(0));
    for (ProbedStream &probed : streams_) {
        if (probed.stream.number != stream.number) continue;
        if (!probed.firstPacket) probed.firstPacket = time;
        const std::span<const uint8_t> payload = PayloadOf(packet);
        if (!probed.firstKeyFrame && BeginsKeyFrame(stream.codecType, payload)) probed.firstKeyFrame = time;
        NotePicture(payload, probed);
    }
}

bool Arrivals::AreComplete() const {
    const std::lock_guard guard(lock_);
    for (const ProbedStream &probed : streams_) {
        if (!probed.stream.isReadable) continue;
        const bool isComplete = HasKeyFrames(probed.stream.codecType) ? probed.firstKeyFrame.has_value()
                                                                      : probed.firstPacket.has_value();
        if (!isComplete) return false;
    }
    return true;
}

std::vector<ProbedStream> Arrivals::Streams() const {
    const std::lock_guard guard(lock_);
    return streams_;
}

} // namespace tool
