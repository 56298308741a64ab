#include "sdp/media_lines.h"

#include "platform/text.h"
#include "rtp/stream_record.h"
#include "sdp/attributes.h"
#include "sdp/sdp_reading.h"

#include <algorithm>

namespace rtsptap {
namespace {

// m=<media> <port> <profile> <payload numbers>
int32_t ReadMedia(SdpReading &reading, std::string_view value) {
    const uint8_t isVideo = Contains(value, "audio") ? 0 : 1;
    reading.stream->description.isVideo = isVideo;
    reading.stream->isVideo.store(isVideo, std::memory_order_relaxed);
    return RTSP_SUCCESS;
}

// b=<modifier>:<kilobits per second>
int32_t ReadBandwidth(SdpReading &reading, std::string_view value) {
    if (LeadingNumber(After(value, ":")) < 1)
        return reading.trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Invalid bandwidth value in SDP\n");

    // Kept: the number is read behind a modifier of two letters ("AS:"), so "TIAS:64000" is refused.
    constexpr std::size_t kModifierLength = 3;
    const int32_t bandwidth = LeadingNumber(value.substr(std::min(kModifierLength, value.size())));
    reading.stream->description.bandwidth = bandwidth;
    return bandwidth == 0 ? reading.trace.Fail(RTSP_BAD_NUMBER, kNotANumber) : RTSP_SUCCESS;
}

constexpr LineReader kMediaLines[] = {{'m', ReadMedia}, {'b', ReadBandwidth}, {'a', ReadAttribute}};

} // namespace

int32_t ReadMediaLine(SdpReading &reading, char letter, std::string_view value) {
    return ReadWith(kMediaLines, reading, letter, value);
}

} // namespace rtsptap
