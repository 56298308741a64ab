#include "sdp/sdp_parser.h"

#include "platform/printers.h"
#include "platform/text.h"
#include "rtp/codec_table.h"
#include "rtp/media_session.h"
#include "rtp/stream.h"
#include "sdp/codec_config.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <locale.h>
#include <new>
#include <span>
#include <string_view>

namespace rtsptap {
namespace {

// ---- one reading in progress ----

// On ParseReceivedSDP's stack, for the readers of lines.
struct SdpReading {
    const DescribedSession &to;
    const CallTrace &trace;           // ParseReceivedSDP's: the readers' failure lines carry its name
    SDPField **listEnd;               // link that takes the next line
    RTSPStreamInfo *stream = nullptr; // current media section; null at session level
};

// A reader's result: RTSP_SUCCESS goes on with the next line, a negative code ends the reading with that
// code, and this one ends it with success; the lines that follow are ignored.
constexpr int32_t kEndEarly = 1;

struct LineReader {
    char letter; // type of the lines it reads
    int32_t (*read)(SdpReading &reading, std::string_view value);
};

// Lines of other types are kept in the list and not read.
int32_t ReadWith(std::span<const LineReader> readers, SdpReading &reading, char letter, std::string_view value) {
    for (const LineReader &reader : readers)
        if (reader.letter == letter) return reader.read(reading, value);
    return RTSP_SUCCESS;
}

constexpr FailureText kNotANumber = "EXIT : %s :Problem in converting Ascii to Integer value \n";

// ---- session level ----

// o=<user> <id> <version> IN IP4 <address>, c=IN IP4 <address>
int32_t ReadNetwork(SdpReading &reading, std::string_view value) {
    if (!Contains(value, "IP4"))
        return reading.trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Network Type not supported\n");
    return RTSP_SUCCESS;
}

// t=<start> <stop>
int32_t ReadSessionTime(SdpReading &reading, std::string_view value) {
    if (LeadingNumber(After(value, " ")) < 0)
        return reading.trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Invalid Session Time found in SDP\n");
    return RTSP_SUCCESS;
}

constexpr LineReader kSessionLines[] = {{'o', ReadNetwork}, {'c', ReadNetwork}, {'t', ReadSessionTime}};

int32_t ReadSessionLine(SdpReading &reading, char letter, std::string_view value) {
    return ReadWith(kSessionLines, reading, letter, value);
}

// ---- attributes of a media section ----

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
    const Codec *const codec = FindCodecByName(stream.description.encodingName);
    if (codec == nullptr) return;
    stream.description.codecType = codec->type;
    stream.codecType.store(codec->type, std::memory_order_release);
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
void ExtractCodecConfig(const SdpReading &reading) {
    RTSPStreamInfo *const stream = reading.stream;
    const Codec *const codec = FindCodec(stream->description.codecType);
    switch (codec != nullptr ? codec->config : CodecConfig::kNone) {
    case CodecConfig::kNone:
        break;
    case CodecConfig::kH264ParameterSets:
        if (ExtractSPSPPS(stream) < 0)
            reading.trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Unable to extract SPS and PPS from SDP\n");
        break;
    case CodecConfig::kAacConfig:
        if (ExtractAACConfig(stream) < 0)
            reading.trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Unable to extract AAC Config from SDP\n");
        break;
    }
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
    const DescribedSession &to = reading.to;
    char(&url)[sizeof(RTSPStreamInfo::controlUrl)] = reading.stream->controlUrl;
    std::string_view skipped;
    if (!Until(value, ':', skipped)) return reading.trace.Fail(kEndEarly, "EXIT : %s :Invalid streamURL field \n");
    if (value.size() >= sizeof url)
        return reading.trace.Fail(RTSP_FAILURE, "\tEXIT : %s : Too long stream URI received from Server \n");

    constexpr std::size_t kRelativeUrlSize = 256; // terminator included; longer ones are cut
    if (Contains(value, "rtsp://"))
        CopyText(url, value);
    else
        (void)snprintf(url, kRelativeUrlSize, "rtsp://%s:%d/%s/%.*s", to.host, to.port, to.path,
                       static_cast<int>(value.size()), value.data());
    if (std::string_view(url) == to.path) url[0] = '\0'; // the session's own URL serves then
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

int32_t ReadAttribute(SdpReading &reading, std::string_view value) {
    for (const AttributeReader &attribute : kAttributes)
        if (Contains(value, attribute.mark)) return attribute.read(reading, value);
    return RTSP_SUCCESS;
}

// ---- media level ----

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

int32_t ReadMediaLine(SdpReading &reading, char letter, std::string_view value) {
    return ReadWith(kMediaLines, reading, letter, value);
}

// ---- the description ----

// A description is lines of a type letter, "=" and a value (RFC 4566, 5). Session lines come first; each
// "m" line opens a media section, which lasts until the next one.

SDPField **EndOfList(SDPField *&head) {
    SDPField **end = &head;
    while (*end != nullptr) end = &(*end)->next;
    return end;
}

// From here on the lines belong to a new stream. A stream stays linked and counted whatever its section
// brings: the application may have been given its number.
int32_t StartStream(SdpReading &reading) {
    RTSPStreamInfo *const stream = AppendStream(reading.to.session, reading.stream);
    if (stream == nullptr) return reading.trace.Fail(RTSP_NO_MEMORY, "\tEXIT : %s :Memory Allocation Failed\n");
    reading.stream = stream;
    reading.listEnd = &stream->sdpFieldList;

    switch (CreateStreamLocks(*stream)) {
    case StreamLock::kPacketList:
        return reading.trace.Fail(RTSP_MUTEX_FAILED, "EXIT : %s: Can not create mutex to lock RTP Data List.\n");
    case StreamLock::kSignal:
        return reading.trace.Fail(RTSP_MUTEX_FAILED,
                                  "EXIT : %s: Can not create mutex to lock condition variable.\n");
    case StreamLock::kCondition:
        return reading.trace.Fail(RTSP_FAILURE, "EXIT : %s: Can not create mutex to lock condition variable.\n");
    case StreamLock::kNone:
        break;
    }
    return RTSP_SUCCESS;
}

int32_t KeepLine(SdpReading &reading, char letter, std::string_view value) {
    std::unique_ptr<SDPField> field(new (std::nothrow) SDPField{});
    if (!field)
        return reading.trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Memory Allocation Failed for SDPField Structure\n");
    field->name[0] = letter;
    field->value = DuplicateText(value).release();
    if (field->value == nullptr)
        return reading.trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Memory Allocation Failed for SDPField's Value\n");
    *reading.listEnd = field.release();
    reading.listEnd = &(*reading.listEnd)->next;
    return RTSP_SUCCESS;
}

int32_t ReadLine(SdpReading &reading, std::string_view line) {
    const char letter = line.front();
    const std::string_view value = line.substr(std::min<std::size_t>(2, line.size()));

    if (letter == 'm')
        if (const int32_t result = StartStream(reading); result != RTSP_SUCCESS) return result;
    if (const int32_t result = KeepLine(reading, letter, value); result != RTSP_SUCCESS) return result;
    return reading.stream == nullptr ? ReadSessionLine(reading, letter, value)
                                     : ReadMediaLine(reading, letter, value);
}

} // namespace

int32_t ParseReceivedSDP(const char *text, const DescribedSession &to) {
    const CallTrace trace(__func__);
    RtpRtspErrorPrint("\t\nENTIRE SDP : %s \n\n", text);

    std::string_view rest = text;
    std::string_view line;
    if (!NextLine(rest, line) || line.front() != 'v')
        return trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Invalid SDP received\n");

    SdpReading reading{.to = to, .trace = trace, .listEnd = EndOfList(to.lines)};
    int32_t result = RTSP_SUCCESS;
    do result = ReadLine(reading, line);
    while (result == RTSP_SUCCESS && NextLine(rest, line));
    return result == kEndEarly ? RTSP_SUCCESS : result;
}

} // namespace rtsptap
