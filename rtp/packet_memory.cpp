#include "rtp/packet_memory.h"

#include "rtp/media_session.h"
#include "rtp/stream.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace rtsptap {

// ---- the ring ----

namespace {

RingPlace PlaceAt(ReceiveRing &ring, RingRoom verdict, int64_t offset, int64_t freeEnd, int64_t mtu) {
    ring.writeIndex = offset;
    return {verdict, std::min(mtu, freeEnd - offset), freeEnd - offset};
}

} // namespace

RingPlace PlaceNextPacket(ReceiveRing &ring, uint32_t mtu) {
    const int64_t longest = mtu;
    int64_t reader = ring.readIndex.load(std::memory_order_acquire);

    // Everything received has been given back. A packet given back meanwhile moves the reader: look again.
    while (reader == ring.writeIndex) {
        if (!ring.readIndex.compare_exchange_strong(reader, 0, std::memory_order_acq_rel)) continue;
        ring.bufferEnd = ring.size;
        ring.gaps = 0;
        return PlaceAt(ring, RingRoom::kReady, 0, ring.bufferEnd, longest);
    }

    if (ring.writeIndex < reader) {
        if (reader - ring.writeIndex <= longest) return {RingRoom::kFullBehind};
        return PlaceAt(ring, RingRoom::kReady, ring.writeIndex, reader, longest);
    }
    if (ring.bufferEnd - ring.writeIndex > longest)
        return PlaceAt(ring, RingRoom::kReady, ring.writeIndex, ring.bufferEnd, longest);
    if (reader <= longest) return {RingRoom::kFullAtEnd};
    ring.gaps = 0;
    return PlaceAt(ring, RingRoom::kWrapped, 0, reader, longest);
}

std::span<uint8_t> FreeRoom(const ReceiveRing &ring) {
    if (ring.storage == nullptr) return {};
    const int64_t reader = ring.readIndex.load(std::memory_order_acquire);
    const int64_t end = ring.bufferEnd + MostGaps(ring.size);
    if (reader == ring.writeIndex) return {ring.storage, ring.storage + end};
    uint8_t *const place = PlaceOf(ring);
    if (ring.writeIndex > reader) return {place, ring.storage + end};
    return {place, std::max(place, ring.storage + reader)}; // there are gaps if packets came back in a wrong order
}

void EmptyRing(ReceiveRing &ring) {
    ring.writeIndex = 0;
    ring.gaps = 0;
    ring.bufferEnd = ring.size;
    ring.readIndex.store(0, std::memory_order_release);
}

bool AllocateRing(ReceiveRing &ring, int32_t size) {
    ReleaseRing(ring);
    const int64_t usable = std::max(size, 1);
    const auto bytes = static_cast<std::size_t>(usable + MostGaps(usable));
    ring.storage = static_cast<uint8_t *>(std::calloc(bytes + kRingSlackBytes, 1));
    if (ring.storage == nullptr) return false;
    ring.size = usable;
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

RTPStreamData closedMark; // in the place of a returned record: the pool is closed

bool IsEnd(const RTPStreamData *packet) { return packet == nullptr || packet == &closedMark; }

void FreeExtension(PacketPool &pool, RTPStreamData &packet) {
    std::free(packet.extensionData);
    packet.extensionData = nullptr;
    pool.extensionBytes.fetch_sub(BlockOf(packet).extensionBytes, std::memory_order_relaxed);
}

int64_t CountList(const RTPStreamData *first, CountedList &counted) {
    int64_t count = 0;
    const RTPStreamData *packet = first;
    for (; !IsEnd(packet) && packet != counted.first; packet = packet->next) ++count;
    if (!IsEnd(packet)) count += counted.count;
    counted = {first, count};
    return count;
}

void FreeList(PacketPool &pool, RTPStreamData *packet) {
    while (!IsEnd(packet)) {
        RTPStreamData *const following = packet->next;
        FreePacketRecord(packet);
        --pool.made;
        packet = following;
    }
}

// Into a closed pool.
[[gnu::cold, gnu::noinline]] void ReturnLate(RTSPStreamInfo &stream, RTPStreamData *packet) {
    FreePacketRecord(packet);
    if (stream.pool.stillOut.fetch_sub(1, std::memory_order_acq_rel) == 1) ReleaseRing(stream.ring);
}

} // namespace

// Taking the whole list at once leaves no room for the ABA problem of popping single records.
RTPStreamData *MakeReady(PacketPool &pool) {
    pool.ready = pool.returned.exchange(nullptr, std::memory_order_acquire);
    pool.readyCounted = pool.returnedCounted = {};
    if (pool.ready != nullptr) return pool.ready;
    pool.ready = static_cast<RTPStreamData *>(std::malloc(sizeof(PacketBlock)));
    if (pool.ready == nullptr) return nullptr;
    pool.ready->next = nullptr;
    BlockOf(*pool.ready).arrivedMs = 0;
    BlockOf(*pool.ready).arrivedNs = 0;
    ++pool.made;
    return pool.ready;
}

bool AllocateExtension(PacketPool &pool, RTPStreamData &packet, uint16_t length, int64_t limit) {
    const int64_t others = pool.extensionBytes.load(std::memory_order_relaxed);
    if (others > 0 && others + length > limit) return false;
    packet.extensionData = static_cast<uint8_t *>(std::calloc(std::max<std::size_t>(length, 1), 1));
    if (packet.extensionData == nullptr) return false;
    BlockOf(packet).extensionBytes = length;
    pool.extensionBytes.fetch_add(length, std::memory_order_relaxed);
    return true;
}

void ReturnPacketRecord(RTSPStreamInfo &stream, RTPStreamData *packet) {
    PacketPool &pool = stream.pool;
    if (packet->extensionData != nullptr) FreeExtension(pool, *packet);
    RTPStreamData *top = pool.returned.load(std::memory_order_relaxed);
    do {
        if (top == &closedMark) return ReturnLate(stream, packet);
        packet->next = top;
    } while (
        !pool.returned.compare_exchange_weak(top, packet, std::memory_order_release, std::memory_order_relaxed));
}

void ReturnPacketRecords(RTSPStreamInfo &stream, RTPStreamData *first, RTPStreamData *last) {
    PacketPool &pool = stream.pool;
    last->next = nullptr;
    for (RTPStreamData *at = first; at != nullptr; at = at->next)
        if (at->extensionData != nullptr) FreeExtension(pool, *at);
    RTPStreamData *top = pool.returned.load(std::memory_order_relaxed);
    do {
        while (top == &closedMark && first != nullptr) ReturnLate(stream, std::exchange(first, first->next));
        if (first == nullptr) return;
        last->next = top;
    } while (
        !pool.returned.compare_exchange_weak(top, first, std::memory_order_release, std::memory_order_relaxed));
}

void FreePacketRecord(RTPStreamData *packet) {
    if (packet == nullptr) return;
    std::free(packet->extensionData);
    std::free(packet);
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
    if (!OpenRing(stream)) return {RingRoom::kNoMemory};
    const RingPlace place = PlaceNextPacket(stream.ring, mtu);
    if (place.room >= needed || !NothingInUse(stream)) return place;
    EmptyRing(stream.ring);
    return PlaceNextPacket(stream.ring, mtu);
}

bool NothingInUse(RTSPStreamInfo &stream) {
    if (stream.packetListHead.load(std::memory_order_relaxed) != nullptr) return false; // spares the counting
    PacketPool &pool = stream.pool;
    const RTPStreamData *const returned = pool.returned.load(std::memory_order_acquire);
    return CountList(pool.ready, pool.readyCounted) + CountList(returned, pool.returnedCounted) == pool.made;
}

// Records come back meanwhile: each either lies in the list that is taken here or finds the pool closed. Whoever
// brings stillOut to 0 is the last one, here or there.
void EndRingAndPool(RTSPStreamInfo &stream) {
    PacketPool &pool = stream.pool;
    RTPStreamData *const returned = pool.returned.exchange(&closedMark, std::memory_order_acq_rel);
    if (returned == &closedMark) return;
    FreeList(pool, returned);
    FreeList(pool, std::exchange(pool.ready, nullptr));
    const int64_t out = pool.made;
    if (pool.stillOut.fetch_add(out, std::memory_order_acq_rel) + out == 0) ReleaseRing(stream.ring);
}

void FreeRingAndPool(RTSPStreamInfo &stream) {
    FreeList(stream.pool, stream.pool.returned.exchange(nullptr, std::memory_order_acquire));
    FreeList(stream.pool, std::exchange(stream.pool.ready, nullptr));
    ReleaseRing(stream.ring);
}

} // namespace rtsptap
