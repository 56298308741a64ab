// Packet records that come back from the application and go out again with the next packet.
// The receive thread takes, any thread gives back; no lock: a push list that the taker empties at once.
// A record is one malloc block, so where its stream is gone it can simply be freed.
#pragma once

#include "rtsptap.h"

#include <atomic>

namespace rtsptap {

struct ReceiveRing;

struct PacketPool {
    std::atomic<RTPStreamData *> returned{nullptr}; // pushed by whoever frees
    RTPStreamData *ready = nullptr;                 // receive thread only
    std::atomic<int64_t> extensionBytes{0};         // in the extensions of records that are out
};

// The bytes of the receive ring that a packet gives back when it is freed. Packets are freed in the order
// of the queue, which after reordering is not that of the ring: a packet that was moved ahead gives back
// nothing, and the last one behind it gives back its bytes as well.
struct RingClaim {
    const ReceiveRing *ring = nullptr; // where the bytes lie
    const uint8_t *begin = nullptr;
    const uint8_t *end = nullptr;
};

// The claim of a record that came from TakePacketRecord.
RingClaim &ClaimOf(RTPStreamData &packet);

// A cleared record with its RTPHeader attached, or null when memory is short.
RTPStreamData *TakePacketRecord(PacketPool &pool);

// Gives the record an extension of `length` zeros. False when memory is short, or when the pool's other records
// have so much that together it would be more than `limit` bytes.
bool AllocateExtension(PacketPool &pool, RTPStreamData &packet, uint16_t length, int64_t limit);

// Frees the extension copy and keeps the record for the next packet.
void ReturnPacketRecord(PacketPool &pool, RTPStreamData *packet);

// Frees a record for good, with its extension copy.
void FreePacketRecord(RTPStreamData *packet);

// Frees every record in the pool. No other thread may use it any more.
void DrainPacketPool(PacketPool &pool);

} // namespace rtsptap
