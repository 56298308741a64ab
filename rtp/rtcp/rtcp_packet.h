// What the sender reports, and what we report (RFC 3550, 6). Entered only by the thread that handles a stream's
// RTCP.
#pragma once

#include <cstdint>
#include <string_view>

namespace rtsptap {

struct RTSPStreamInfo;

// Reads the first packet of a compound one and keeps a sender report in the stream. 0 when it is of a kind
// that a report answers, -1 otherwise. A packet shorter than its fields is read as if zeros followed.
int32_t ParseRtcpPacket(RTSPStreamInfo *stream, const uint8_t *packet, int32_t size);

// To whom the client wants it shown.
void ShowRtcp(const RTSPStreamInfo &stream, bool isSent, const uint8_t *packet, int32_t size);

// Forgets the last sender report.
void ClearSenderReport(RTSPStreamInfo &stream);

struct RTSPStreamInfo;

// Writes a receiver report, with our host name as CNAME when it has at most 27 characters. Returns the
// report's length, or -1 when the buffer is too small.
int32_t CreateRRPacket(RTSPStreamInfo *stream, uint8_t *buffer, int32_t bufferSize);

// The same for a given name; without one (data() is null) the SDES part is left out.
int32_t WriteReceiverReport(RTSPStreamInfo &stream, uint8_t *buffer, int32_t bufferSize, std::string_view hostName);

} // namespace rtsptap
