// Serving a stream's RTCP: every report of the server is answered, as a datagram or in a frame of the RTSP
// connection.
#pragma once

#include <cstdint>

namespace rtsptap {

struct RTSPStreamInfo;

// To the port above the server's RTP port; does nothing for an interleaved client. 0 or -1.
int32_t SendRtcpPacket(RTSPStreamInfo *stream, const uint8_t *packet, int32_t length);

// As one frame on the channel above the stream's RTP channel. 0, -1 or -93. Never waits for a peer that does
// not read or for a request being sent: then the report is dropped, and 0 returned.
int32_t SendRtcpPacketTCP(RTSPStreamInfo *stream, const uint8_t *packet, int32_t length);

struct StreamThread;

// Thread body: serves the stream's rtcpSocket until it is told to end, the socket fails or delivers nothing,
// or the session is over.
void ServeRtcp(StreamThread &thread);

} // namespace rtsptap
