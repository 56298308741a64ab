// One received RTP packet: its bytes become a record. Receive thread only; the bytes are not copied.
// A packet that claims more than arrived is read as if zeros followed it.
#pragma once

#include "rtsptap.h"

namespace rtsptap {

struct RTSPStreamInfo;

struct RTPDataBuffer {
    uint32_t length = 0;     // bytes received
    uint8_t *data = nullptr; // first of them, inside the stream's receive ring
};

// A record from the stream's pool, numbered and counted in the stream's sequence and loss figures;
// null when the packet is refused, and then nothing in the stream has changed.
RTPStreamData *ParseRTPData(const RTPDataBuffer *rtpDataBuffer, RTSPStreamInfo *rtspStreamInfo);

// True for the static types we know and for every dynamic one (RFC 3551, 6).
bool IsAcceptedPayloadType(uint8_t payloadType);

} // namespace rtsptap
