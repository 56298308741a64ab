// Reading what the sender reports (RFC 3550, 6). Entered only by the thread that handles a stream's RTCP.
#pragma once

#include <cstdint>

namespace rtsptap {

struct RTSPStreamInfo;

// Reads the first packet of a compound one and keeps a sender report in the stream. 0 when it is of a kind
// that a report answers, -1 otherwise. A packet shorter than its fields is read as if zeros followed.
int32_t ParseRtcpPacket(RTSPStreamInfo *stream, const uint8_t *packet, int32_t size);

// To whom the client wants it shown.
void ShowRtcp(const RTSPStreamInfo &stream, bool isSent, const uint8_t *packet, int32_t size);

// Forgets the last sender report.
void ClearSenderReport(RTSPStreamInfo &stream);

} // namespace rtsptap
