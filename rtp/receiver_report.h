// The report that answers a sender: how far its packets arrived, and who we are (RFC 3550, 6.4.2 and 6.5.1).
// Entered only by the thread that handles a stream's RTCP; the figures are the receive thread's, as they stand.
#pragma once

#include <cstdint>
#include <string_view>

namespace rtsptap {

struct RTSPStreamInfo;

// Writes a receiver report, with our host name as CNAME when it has at most 27 characters. Returns the
// report's length, or -1 when the buffer is too small.
int32_t CreateRRPacket(RTSPStreamInfo *stream, uint8_t *buffer, int32_t bufferSize);

// The same for a given name; without one (data() is null) the SDES part is left out.
int32_t WriteReceiverReport(RTSPStreamInfo &stream, uint8_t *buffer, int32_t bufferSize, std::string_view hostName);

} // namespace rtsptap
