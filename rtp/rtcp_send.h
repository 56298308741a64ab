// Sending a report: as a datagram, or in a frame of the RTSP connection (RFC 2326, 10.12).
// Entered only by the thread that handles a stream's RTCP.
#pragma once

#include <cstdint>

namespace rtsptap {

struct RTSPStreamInfo;

// To the port above the server's RTP port; does nothing for an interleaved client. 0 or -1.
int32_t SendRtcpPacket(RTSPStreamInfo *stream, const uint8_t *packet, int32_t length);

// As one frame on the channel above the stream's RTP channel. 0, -1 or -93. Never waits for a peer that does
// not read or for a request being sent: then the report is dropped, and 0 returned.
int32_t SendRtcpPacketTCP(RTSPStreamInfo *stream, const uint8_t *packet, int32_t length);

} // namespace rtsptap
