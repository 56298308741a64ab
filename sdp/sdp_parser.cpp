#include "sdp/sdp_parser.h"

#include "platform/text.h"
#include "rtp/stream_lifecycle.h"
#include "rtp/stream_record.h"
#include "rtsp/client/client_record.h"
#include "sdp/media_lines.h"
#include "sdp/sdp_field.h"
#include "sdp/sdp_reading.h"
#include "sdp/session_lines.h"

#include <algorithm>
#include <new>

namespace rtsptap {
namespace {

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
    RTSPStreamInfo *const stream = AppendStream(reading.client, reading.stream);
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

int32_t ParseReceivedSDP(RTSPClient *client) {
    const CallTrace trace(__func__);
    if (client == nullptr) return trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Invalid input argument\n");

    const char *const text = client->receivedSDP != nullptr ? client->receivedSDP : "";
    RtpRtspErrorPrint("\t\nENTIRE SDP : %s \n\n", text);

    std::string_view rest = text;
    std::string_view line;
    if (!NextLine(rest, line) || line.front() != 'v')
        return trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Invalid SDP received\n");

    SdpReading reading{.client = *client, .trace = trace, .listEnd = EndOfList(client->sdpFieldList)};
    int32_t result = RTSP_SUCCESS;
    do result = ReadLine(reading, line);
    while (result == RTSP_SUCCESS && NextLine(rest, line));
    return result == kEndEarly ? RTSP_SUCCESS : result;
}

} // namespace rtsptap
