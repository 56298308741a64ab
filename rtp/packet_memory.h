// Where a received packet lives: its bytes in the stream's receive ring, its record from the stream's pool.
#pragma once

#include "rtsptap.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>

namespace rtsptap {

struct RTSPStreamInfo;

// ---- The ring: where the next packet may lie in a stream's receive buffer. Pure arithmetic on three offsets ----
// Whoever receives places and advances; the application gives space back by moving readIndex.
//
//    0        readIndex        writeIndex        bufferEnd = size
//    |  free  |  packets in use  |     free        |   what gaps may take, kRingSlackBytes of zeros
//
// Offsets count the packets' bytes alone, so how much a ring holds does not depend on how the bytes came. Where
// packets were left where they were read, with gaps before them, they lie further on than that by `gaps`.

// The longest offset that a packet's own header can claim for its payload: (15 + 3) * 4 bytes of header and
// CSRCs, 4 of extension header, 0x3FFF * 4 of extension. Zeroed slack of that size behind the ring keeps
// every payload pointer inside the allocation.
inline constexpr std::size_t kRingSlackBytes = 72 + 4 + 0x3FFF * 4;

struct ReceiveRing {
    // Of whoever receives, except that the pointer and size are constant while packets are out.
    uint8_t *storage = nullptr; // owned, free(); size + MostGaps(size) + kRingSlackBytes bytes
    int64_t size = 0;           // bytes that packets may use
    int64_t writeIndex = 0;     // where the next packet is received
    int64_t bufferEnd = 0;      // end of the current pass
    int64_t gaps = 0;           // bytes before writeIndex that are no packet's; 0 while it is below readIndex

    std::atomic<int64_t> readIndex{0}; // just past the last packet given back; application writes, thread resets
};

// A gap is no longer than an eighth of the packet behind it.
inline constexpr int64_t kGapsPerPacket = 8;
constexpr int64_t MostGaps(int64_t size) { return size / kGapsPerPacket; }

// Where in the storage the next packet goes.
inline uint8_t *PlaceOf(const ReceiveRing &ring) { return ring.storage + ring.writeIndex + ring.gaps; }

enum class RingRoom {
    kReady,      // a packet of up to `room` bytes may be received at `writeIndex`
    kWrapped,    // the same, after going back to the start
    kFullBehind, // full: the writer stands close behind the reader
    kFullAtEnd,  // full: neither the end nor the start has room
    kNoMemory    // for the storage
};

struct RingPlace {
    RingRoom verdict = RingRoom::kFullBehind;
    int64_t room = 0;       // contiguous bytes at writeIndex, at most the MTU
    int64_t contiguous = 0; // all of them
};

// Decides where the next packet goes. `mtu` in bytes, at least 1.
RingPlace PlaceNextPacket(ReceiveRing &ring, uint32_t mtu);

// The free bytes from where the next packet goes, or would when all is given back. Changes nothing.
std::span<uint8_t> FreeRoom(const ReceiveRing &ring);

// Treats the ring as empty: nothing in it is queued or held any more.
void EmptyRing(ReceiveRing &ring);

// Gives the ring a storage of `size` bytes, zeroed; false when memory is short (the ring then has none).
bool AllocateRing(ReceiveRing &ring, int32_t size);
void ReleaseRing(ReceiveRing &ring);

// ---- The pool: records that come back from the application and go out again with the next packet ----
// Whoever receives takes, any thread gives back; no lock: a push list that the taker empties at once.
// A record is one malloc block, so where its stream is gone it can simply be freed.
//
// Nobody counts, packet for packet, how many are out, queued or with the application: those are all that were made,
// less those that lie in the pool. Whoever receives can tell at any time. When the session is over the pool is
// closed, and from then on records that come back are counted and freed.

// How long a list of records was, from its first one on. It grows and shrinks at that end.
struct CountedList {
    const RTPStreamData *first = nullptr;
    int64_t count = 0;
};

struct PacketPool {
    std::atomic<RTPStreamData *> returned{nullptr}; // pushed by whoever frees; a mark when the pool is closed
    std::atomic<int64_t> stillOut{0};       // once closed: 0 in the end, below it while the count is to come
    std::atomic<int64_t> extensionBytes{0}; // in the extensions of records that are out
    // ---- Of whoever receives ----
    RTPStreamData *ready = nullptr;
    int64_t made = 0;                          // records: in the pool and out
    CountedList readyCounted, returnedCounted; // when NothingInUse last looked
};

// The bytes of the receive ring that a packet gives back when it is freed. Packets are freed in the order
// of the queue, which after reordering is not that of the ring: a packet that was moved ahead gives back
// nothing, and the last one behind it gives back its bytes as well. Gaps are left out, as in the ring's offsets.
struct RingClaim {
    const ReceiveRing *ring = nullptr; // where the bytes lie
    const uint8_t *begin = nullptr;
    const uint8_t *end = nullptr;
};

// One allocation: the record comes first, so a pointer to it is a pointer to the block.
struct PacketBlock {
    RTPStreamData record;
    RTPHeader header;
    RingClaim claim;         // set when the packet is accepted
    uint64_t arrivedMs;      // MonotonicMs, set where missing packets are waited for
    int64_t arrivedNs;       // since 1970, set where packets are counted; else 0
    uint16_t extensionBytes; // set with the extension
};
static_assert(std::is_standard_layout_v<PacketBlock>);

// The block of a record that came from TakePacketRecord, and what it claims.
inline PacketBlock &BlockOf(RTPStreamData &packet) { return reinterpret_cast<PacketBlock &>(packet); }
inline RingClaim &ClaimOf(RTPStreamData &packet) { return BlockOf(packet).claim; }

// The records that have come back, or a new one, are ready: the first of them, null when memory is short.
RTPStreamData *MakeReady(PacketPool &pool);

// The memory of the record that is taken next is asked for: with many streams none is in a cache any more. Of null,
// as the pool has none, nothing comes; to add to it as to a pointer would be undefined.
inline void AskFor(const RTPStreamData *packet) {
    constexpr std::size_t kLine = 64;
    const auto block = reinterpret_cast<uintptr_t>(packet);
    for (std::size_t at = 0; at < sizeof(PacketBlock); at += kLine)
        __builtin_prefetch(reinterpret_cast<const void *>(block + at), 1);
}

// In two pieces: g++ clears more than 64 bytes with an instruction that takes longer than parsing does.
inline void Clear(RTPStreamData &record) {
    constexpr std::size_t kFirst = 64;
    auto *const bytes = reinterpret_cast<char *>(&record);
    std::memset(bytes, 0, kFirst);
    std::memset(bytes + kFirst, 0, sizeof record - kFirst);
}

// A cleared record with its RTPHeader attached, or null when memory is short. Whoever receives.
inline RTPStreamData *TakePacketRecord(PacketPool &pool) {
    RTPStreamData *const packet = pool.ready != nullptr ? pool.ready : MakeReady(pool);
    if (packet == nullptr) return nullptr;
    pool.ready = packet->next;
    AskFor(pool.ready);
    PacketBlock &block = BlockOf(*packet);
    Clear(block.record);
    block.header = {};
    block.record.rtpHeader = &block.header;
    return packet;
}

// Gives the record an extension of `length` zeros. False when memory is short, or when the pool's other records
// have so much that together it would be more than `limit` bytes.
bool AllocateExtension(PacketPool &pool, RTPStreamData &packet, uint16_t length, int64_t limit);

// Frees the extension copy and keeps the record for the stream's next packet. When its session is over the record
// goes, too, and with the last one the ring. Any thread; the stream lives.
void ReturnPacketRecord(RTSPStreamInfo &stream, RTPStreamData *packet);

// The same for records that are linked by their next, from `first` to `last`.
void ReturnPacketRecords(RTSPStreamInfo &stream, RTPStreamData *first, RTPStreamData *last);

// Frees a record for good, with its extension copy.
void FreePacketRecord(RTPStreamData *packet);

// ---- A stream's ring and pool: sized, made and filled by whoever receives ----

// Gives the ring the session's size of now; the storage is kept while packets in it are queued or held.
void SizeRing(RTSPStreamInfo &stream);
// Makes the storage of a ring that was given a size, if it has none. False when memory is short.
bool OpenRing(RTSPStreamInfo &stream);
// Where the next packet of up to `needed` bytes goes; a ring full of packets that nobody holds or will hold counts
// as empty. Makes the storage, if there is none.
RingPlace FindRoom(RTSPStreamInfo &stream, int64_t needed);

// True when no packet of the stream is queued or held by the application. Asked again and again while a ring is
// full: it counts what has come back since.
bool NothingInUse(RTSPStreamInfo &stream);
// The session is over, nobody receives any more and the queue is empty: frees what lies in the pool, and the ring
// once the last packet has come back that the application has, or was shown.
void EndRingAndPool(RTSPStreamInfo &stream);
// Nobody receives, queues or holds any more.
void FreeRingAndPool(RTSPStreamInfo &stream);

} // namespace rtsptap
