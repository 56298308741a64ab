// RTCP of a stream: every report of the server is answered, over UDP a long silence is broken.
#pragma once

#include <cstdint>
#include <span>

namespace rtsptap {

struct RTSPStreamInfo;
struct Service;

// Serves the stream's rtcpSocket. Ends when it fails or delivers nothing, and when the session is over.
extern const Service kRtcpService;

// Answers a report that came in a frame. Whoever serves the connection.
void AnswerInterleavedRtcp(RTSPStreamInfo &stream, std::span<const uint8_t> packet);

// To the port above the server's RTP port; does nothing for an interleaved session. 0 or -1.
int32_t SendRtcpPacket(RTSPStreamInfo *stream, const uint8_t *packet, int32_t length);

// As one frame on the channel above the stream's RTP channel (RFC 2326, 10.12). 0, -1 or -93. Never waits for a
// peer that does not read or for a request being sent: then the report is dropped, and 0 returned.
int32_t SendRtcpPacketTCP(RTSPStreamInfo *stream, const uint8_t *packet, int32_t length);

} // namespace rtsptap
