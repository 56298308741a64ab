// One received RTP packet: its bytes become a record. Whoever receives; the bytes are not copied.
// A packet that claims more than arrived is read as if zeros followed it.
#pragma once

#include "platform/printers.h"
#include "rtsptap.h"

#include <atomic>
#include <cstdint>

namespace rtsptap {

struct ArrivalRules;
struct RTSPStreamInfo;

// Lost packets of the whole process: the receive threads of all clients count in it.
extern std::atomic<uint32_t> totalPktLost;

struct RTPDataBuffer {
    uint32_t length = 0;     // bytes received
    uint8_t *data = nullptr; // first of them, inside the stream's receive ring
};

// A record from the stream's pool, numbered and counted in the stream's sequence and loss figures;
// null when the packet is refused, and then nothing in the stream has changed.
RTPStreamData *ParseRTPData(const RTPDataBuffer *rtpDataBuffer, RTSPStreamInfo *rtspStreamInfo);

// Parses and queues the `length` bytes at the ring's writeIndex and moves it behind them. Signals nobody. Whoever
// receives.
void AcceptPacket(RTSPStreamInfo &stream, uint32_t length, const ArrivalRules &rules,
                  FailureText invalidPacketText);

} // namespace rtsptap
