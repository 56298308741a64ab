// One received RTP packet: its bytes become a record. Receive thread only; the bytes are not copied.
// A packet that claims more than arrived is read as if zeros followed it.
#pragma once

#include "rtsptap.h"

#include <atomic>
#include <cstdint>

namespace rtsptap {

struct RTSPStreamInfo;

// Lost packets of the whole process, as counted by CountGap.
extern std::atomic<uint32_t> totalPktLost;

// Compares a new number with the stream's last one. On a gap counts and prints it and returns true.
bool CountGap(RTSPStreamInfo &stream, uint16_t sequenceNumber);

// Makes the number the stream's last one, and its base when it is the first.
void NoteSequenceNumber(RTSPStreamInfo &stream, uint16_t sequenceNumber);

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
