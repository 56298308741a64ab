#include "rtp/receive_ring.h"

#include <algorithm>
#include <cstdlib>

namespace rtsptap {

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

} // namespace rtsptap
