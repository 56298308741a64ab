// Gaps in a stream's sequence numbers, and its first and last number. Receive thread only, except
// totalPktLost, which the receive threads of all clients share.
#pragma once

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

} // namespace rtsptap
