// What the sender reports, and what we report (RFC 3550, 6). Entered only by the thread that handles a stream's
// RTCP; the figures reported are the receive thread's, as they stand.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace rtsptap {

struct RTSPStreamInfo;

enum RtcpType : uint8_t {
    kSenderReport = 200,
    kReceiverReport = 201,
    kSourceDescription = 202,
    kBye = 203,
    kApplication = 204,
    kTransportFeedback = 205, // RFC 4585, 6.2
    kIgnored = 100            // Kept: no RTCP type, yet accepted and answered like a receiver report.
};

// Whether a client wants to know more of RTCP packets than their first part, and reading that.
bool ReadsParts(const RTSPStreamInfo &stream);
void ReadParts(RTSPStreamInfo &stream, std::span<const uint8_t> packet);

// Reads the first packet of a compound one and keeps a sender report in the stream. 0 when it is of a kind
// that a report answers at once, -1 otherwise. A packet shorter than its fields is read as if zeros followed.
int32_t ParseRtcpPacket(RTSPStreamInfo *stream, const uint8_t *packet, int32_t size);

// A new SSRC for our receiver reports (RFC 3550, 8.1). Any thread.
uint32_t ChooseSsrc(const RTSPStreamInfo &stream);

// Writes a receiver report (RFC 3550, 6.4.2 and 6.5.1), with our host name as CNAME when it has at most 27
// characters. Returns the report's length, or -1 when the buffer is too small.
int32_t CreateRRPacket(RTSPStreamInfo *stream, uint8_t *buffer, int32_t bufferSize);

// The same for a given name; without one (data() is null) the SDES part is left out.
int32_t WriteReceiverReport(RTSPStreamInfo &stream, uint8_t *buffer, int32_t bufferSize, std::string_view hostName);

// To whom the session wants it shown, sent or received.
void ShowRtcp(const RTSPStreamInfo &stream, bool isSent, const uint8_t *packet, int32_t size);

// ---- sending: by whoever handles the stream's RTCP ----

// Answers a report that came in a frame. Whoever serves the connection.
void AnswerInterleavedRtcp(RTSPStreamInfo &stream, std::span<const uint8_t> packet);

// To the port above the server's RTP port; does nothing for an interleaved session. 0 or -1.
int32_t SendRtcpPacket(RTSPStreamInfo *stream, const uint8_t *packet, int32_t length);

// As one frame on the channel above the stream's RTP channel (RFC 2326, 10.12). 0, -1 or -93. Never waits for a
// peer that does not read or for a request being sent: then the report is dropped, and 0 returned.
int32_t SendRtcpPacketTCP(RTSPStreamInfo *stream, const uint8_t *packet, int32_t length);

} // namespace rtsptap
