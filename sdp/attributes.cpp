#include "sdp/attributes.h"

#include "platform/text.h"
#include "rtp/stream_record.h"
#include "rtsp/client/client_record.h"
#include "sdp/aac_config.h"
#include "sdp/codec_table.h"
#include "sdp/h264_config.h"
#include "sdp/sdp_reading.h"

#include <cstdio>
#include <cstdlib>
#include <locale.h>

namespace rtsptap {
namespace {

// <clock rate>[/<channels>], the channels of audio only
int32_t ReadClockAndChannels(SdpReading &reading, std::string_view text) {
    RTSPStreamDescription &description = reading.stream->description;
    description.clockRate = LeadingNumber(text);
    if (description.clockRate == 0) return reading.trace.Fail(RTSP_BAD_NUMBER, kNotANumber);

    std::string_view clockRate;
    if (description.isVideo != 0 || !Until(text, '/', clockRate)) return RTSP_SUCCESS;
    description.channels = LeadingNumber(text);
    return description.channels == 0 ? reading.trace.Fail(RTSP_BAD_NUMBER, kNotANumber) : RTSP_SUCCESS;
}

// A name without a rule leaves an earlier rtpmap's codec in force. Packets are asked for by codec, from any
// thread, so it is published when the rest of the map has been read.
void TakeCodecType(RTSPStreamInfo &stream) {
    const int32_t codecType = CodecTypeOf(stream.description.encodingName);
    if (codecType == kNoCodecType) return;
    stream.description.codecType = codecType;
    stream.codecType.store(codecType, std::memory_order_release);
}

// a=rtpmap:<payload number> <encoding name>/<clock rate>[/<channels>]
int32_t ReadRtpmap(SdpReading &reading, std::string_view value) {
    RTSPStreamDescription &description = reading.stream->description;
    std::string_view skipped;
    if (!Until(value, ':', skipped))
        return reading.trace.Fail(kEndEarly, "EXIT : %s :Invalid rtpmap value in SDP \n");
    description.payloadNumber = LeadingNumber(value);
    if (description.payloadNumber == 0 && !value.starts_with('0'))
        return reading.trace.Fail(RTSP_FAILURE, kNotANumber);

    std::string_view name;
    if (!Until(value, ' ', skipped) || !Until(value, '/', name))
        return reading.trace.Fail(kEndEarly, "EXIT : %s :Invalid rtpmap value in SDP \n");
    if (name.size() >= sizeof description.encodingName)
        return reading.trace.Fail(RTSP_FAILURE, "EXIT : %s :Problem in copying Encoding Name \n");
    CopyText(description.encodingName, name);

    if (const int32_t result = ReadClockAndChannels(reading, value); result != RTSP_SUCCESS) return result;
    TakeCodecType(*reading.stream);
    return RTSP_SUCCESS;
}

// Whether the configuration is found or not, the stream can be received: failures are only told.
void ExtractCodecConfig(SdpReading &reading) {
    RTSPStreamInfo *const stream = reading.stream;
    if (stream->description.codecType == RTP_CODEC_H264 && ExtractSPSPPS(stream) < 0)
        reading.trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Unable to extract SPS and PPS from SDP\n");
    if (stream->description.codecType == RTP_CODEC_MPEG4_GENERIC && ExtractAACConfig(stream) < 0)
        reading.trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Unable to extract AAC Config from SDP\n");
}

// a=fmtp:<payload number> <name>=<value>; ...
int32_t ReadFmtp(SdpReading &reading, std::string_view value) {
    RTSPStreamDescription &description = reading.stream->description;
    std::string_view skipped;
    if (!Until(value, ':', skipped)) return RTSP_SUCCESS; // no parameters, nothing to keep

    HeapText fmtp = DuplicateText(value);
    if (!fmtp) return reading.trace.Fail(RTSP_NO_MEMORY, "\tEXIT : %s :Memory Allocation Failed\n");
    free(description.fmtp);
    description.fmtp = fmtp.release();
    description.fmtpLength = static_cast<int32_t>(value.size());
    ExtractCodecConfig(reading); // Kept: without a codec yet, from an rtpmap line above, it extracts nothing
    return RTSP_SUCCESS;
}

// As atof reads it, words and hexadecimal numbers included, but with a point for its point in every locale.
double LikeAtof(std::string_view text) {
    static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", nullptr);
    char number[1024];
    CopyText(number, text);
    return strtod_l(number, nullptr, cLocale);
}

// a=framerate:<frames per second>
int32_t ReadFrameRate(SdpReading &reading, std::string_view value) {
    const std::string_view text = After(value, ":");
    const double frameRate = LikeAtof(text);
    if (frameRate == 0.0 && text != "0.0")
        return reading.trace.Fail(kEndEarly, "EXIT : %s :Invalid SDP framerate\n");
    reading.stream->description.frameRate = frameRate;
    return RTSP_SUCCESS;
}

// a=control:<URL, absolute or relative to the session's>
int32_t ReadControl(SdpReading &reading, std::string_view value) {
    const RTSPClient &client = reading.client;
    char(&url)[sizeof(RTSPStreamInfo::controlUrl)] = reading.stream->controlUrl;
    std::string_view skipped;
    if (!Until(value, ':', skipped)) return reading.trace.Fail(kEndEarly, "EXIT : %s :Invalid streamURL field \n");
    if (value.size() >= sizeof url)
        return reading.trace.Fail(RTSP_FAILURE, "\tEXIT : %s : Too long stream URI received from Server \n");

    constexpr std::size_t kRelativeUrlSize = 256; // terminator included; longer ones are cut
    if (Contains(value, "rtsp://"))
        CopyText(url, value);
    else
        (void)snprintf(url, kRelativeUrlSize, "rtsp://%s:%d/%s/%.*s", client.serverIp, client.serverPort,
                       client.sessionName, static_cast<int>(value.size()), value.data());
    if (std::string_view(url) == client.sessionName) url[0] = '\0'; // the session's own URL serves then
    RtpRtspErrorPrint("\n\nINFOINFOINFO : STREAM URI : %s \n\n", url);
    return RTSP_SUCCESS;
}

struct AttributeReader {
    std::string_view mark; // found anywhere in the value
    int32_t (*read)(SdpReading &reading, std::string_view value);
};

// In test order: the first mark found decides, so "fmtp:96 control=..." is an fmtp line.
constexpr AttributeReader kAttributes[] = {
    {"rtpmap", ReadRtpmap},
    {"fmtp", ReadFmtp},
    {"framerate", ReadFrameRate},
    {"control", ReadControl},
};

} // namespace

int32_t ReadAttribute(SdpReading &reading, std::string_view value) {
    for (const AttributeReader &attribute : kAttributes)
        if (Contains(value, attribute.mark)) return attribute.read(reading, value);
    return RTSP_SUCCESS;
}

} // namespace rtsptap
