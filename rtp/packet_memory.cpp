#include "rtp/packet_memory.h"

#include "rtp/media_session.h"
#include "rtp/stream.h"

#include <algorithm>
#include <cstdlib>
#include <type_traits>

namespace rtsptap {

// ---- the ring ----

namespace {

RingPlace PlaceAt(ReceiveRing &ring, RingRoom verdict, int64_t offset, int64_t freeEnd, int64_t mtu) {
    ring.writeIndex = offset;
    return {verdict, std::min(mtu, freeEnd - offset)};
}

} // namespace

RingPlace PlaceNextPacket(ReceiveRing &ring, uint32_t mtu) {
    const int64_t longest = mtu;
    int64_t reader = ring.readIndex.load(std::memory_order_acquire);

    // Everything received has been given back. A packet given back meanwhile moves the reader: look again.
    while (reader == ring.writeIndex) {
        if (!ring.readIndex.compare_exchange_strong(reader, 0, std::memory_order_acq_rel)) continue;
        ring.bufferEnd = ring.size;
        return PlaceAt(ring, RingRoom::kReady, 0, ring.bufferEnd, longest);
    }

    if (ring.writeIndex < reader) {
        if (reader - ring.writeIndex <= longest) return {RingRoom::kFullBehind, 0};
        return PlaceAt(ring, RingRoom::kReady, ring.writeIndex, reader, longest);
    }
    if (ring.bufferEnd - ring.writeIndex > longest)
        return PlaceAt(ring, RingRoom::kReady, ring.writeIndex, ring.bufferEnd, longest);
    if (reader <= longest) return {RingRoom::kFullAtEnd, 0};
    return PlaceAt(ring, RingRoom::kWrapped, 0, reader, longest);
}

void EmptyRing(ReceiveRing &ring) {
    ring.writeIndex = 0;
    ring.bufferEnd = ring.size;
    ring.readIndex.store(0, std::memory_order_release);
}

bool AllocateRing(ReceiveRing &ring, int32_t size) {
    ReleaseRing(ring);
    const std::size_t usable = size > 0 ? static_cast<std::size_t>(size) : 1;
    ring.storage = static_cast<uint8_t *>(std::calloc(usable + kRingSlackBytes, 1));
    if (ring.storage == nullptr) return false;
    ring.size = static_cast<int64_t>(usable);
    EmptyRing(ring);
    return true;
}

void ReleaseRing(ReceiveRing &ring) {
    std::free(ring.storage);
    ring.storage = nullptr;
    ring.size = 0;
    EmptyRing(ring);
}

// ---- the pool ----

namespace {

// One allocation: the record comes first, so a pointer to it is a pointer to the block.
struct PacketBlock {
    RTPStreamData record;
    RTPHeader header;
    RingClaim claim;
    uint16_t extensionBytes;
};
static_assert(std::is_standard_layout_v<PacketBlock>);

PacketBlock *BlockOf(RTPStreamData *packet) { return reinterpret_cast<PacketBlock *>(packet); }

RTPStreamData *NewOrReturned(PacketPool &pool) {
    // Taking the whole list at once leaves no room for the ABA problem of popping single records.
    if (pool.ready == nullptr) pool.ready = pool.returned.exchange(nullptr, std::memory_order_acquire);
    if (pool.ready == nullptr) return static_cast<RTPStreamData *>(std::malloc(sizeof(PacketBlock)));
    RTPStreamData *const packet = pool.ready;
    pool.ready = packet->next;
    return packet;
}

void FreeExtension(PacketPool &pool, RTPStreamData &packet) {
    std::free(packet.extensionData);
    packet.extensionData = nullptr;
    pool.extensionBytes.fetch_sub(BlockOf(&packet)->extensionBytes, std::memory_order_relaxed);
}

void FreeList(RTPStreamData *packet) {
    while (packet != nullptr) {
        RTPStreamData *const following = packet->next;
        FreePacketRecord(packet);
        packet = following;
    }
}

} // namespace

RingClaim &ClaimOf(RTPStreamData &packet) { return BlockOf(&packet)->claim; }

RTPStreamData *TakePacketRecord(PacketPool &pool) {
    RTPStreamData *const packet = NewOrReturned(pool);
    if (packet == nullptr) return nullptr;
    PacketBlock *const block = BlockOf(packet);
    *block = PacketBlock{};
    block->record.rtpHeader = &block->header;
    return packet;
}

bool AllocateExtension(PacketPool &pool, RTPStreamData &packet, uint16_t length, int64_t limit) {
    const int64_t others = pool.extensionBytes.load(std::memory_order_relaxed);
    if (others > 0 && others + length > limit) return false;
    packet.extensionData = static_cast<uint8_t *>(std::calloc(std::max<std::size_t>(length, 1), 1));
    if (packet.extensionData == nullptr) return false;
    BlockOf(&packet)->extensionBytes = length;
    pool.extensionBytes.fetch_add(length, std::memory_order_relaxed);
    return true;
}

void ReturnPacketRecord(PacketPool &pool, RTPStreamData *packet) {
    if (packet->extensionData != nullptr) FreeExtension(pool, *packet);
    packet->next = pool.returned.load(std::memory_order_relaxed);
    while (!pool.returned.compare_exchange_weak(packet->next, packet, std::memory_order_release,
                                                std::memory_order_relaxed)) {
    }
}

void FreePacketRecord(RTPStreamData *packet) {
    if (packet == nullptr) return;
    std::free(packet->extensionData);
    std::free(packet);
}

void DrainPacketPool(PacketPool &pool) {
    FreeList(pool.returned.exchange(nullptr, std::memory_order_acquire));
    FreeList(pool.ready);
    pool.ready = nullptr;
}

// ---- a stream's ring and pool ----

void SizeRing(RTSPStreamInfo &stream) {
    const MediaSession &session = *stream.session;
    const int32_t size = stream.isVideo == 1 ? session.videoBufferSize : session.audioBufferSize;
    if (stream.ring.size != size && NothingInUse(stream)) ReleaseRing(stream.ring);
    if (stream.ring.storage == nullptr) stream.ring.size = size;
}

bool OpenRing(RTSPStreamInfo &stream) {
    ReceiveRing &ring = stream.ring;
    return ring.storage != nullptr || AllocateRing(ring, static_cast<int32_t>(ring.size));
}

RingPlace FindRoom(RTSPStreamInfo &stream, int64_t needed) {
    const uint32_t mtu = stream.session->mtuSize;
    if (!OpenRing(stream)) return {RingRoom::kNoMemory, 0};
    const RingPlace place = PlaceNextPacket(stream.ring, mtu);
    if (place.room >= needed || !NothingInUse(stream)) return place;
    EmptyRing(stream.ring);
    return PlaceNextPacket(stream.ring, mtu);
}

bool NothingInUse(const RTSPStreamInfo &stream) {
    // In this order: a packet that is being taken holds the ring before it leaves the head.
    return stream.packetListHead.load(std::memory_order_acquire) == nullptr &&
           stream.ringHolders.load(std::memory_order_acquire) == 1;
}

void HoldRing(RTSPStreamInfo &stream) { stream.ringHolders.fetch_add(1, std::memory_order_relaxed); }

void LetGoOfRing(RTSPStreamInfo &stream) {
    if (stream.ringHolders.fetch_sub(1, std::memory_order_acq_rel) == 1) FreeRingAndPool(stream);
}

void FreeRingAndPool(RTSPStreamInfo &stream) {
    DrainPacketPool(stream.pool);
    ReleaseRing(stream.ring);
}

} // namespace rtsptap
