// The packets that the application took by the number of their stream and has not given back: which they are, so
// that no pointer is followed that is not one of them, and in what order they were taken, because the receive ring
// gets its bytes back in that order however they come back.
//
// The order is a list through the records. Bytes of one that comes back early are claimed by the one before it from
// then on, so nothing is left behind but a longer claim.
#pragma once

#include "rtsptap.h"

#include <cstddef>
#include <cstdint>

namespace rtsptap {

class HeldPackets {
public:
    HeldPackets() = default;
    ~HeldPackets();
    HeldPackets(const HeldPackets &) = delete;
    HeldPackets &operator=(const HeldPackets &) = delete;

    // Before a packet is taken. False when memory is short.
    bool MakeRoom() { return 2 * (count_ + 1) <= slots_ || Grow(); }
    void Add(RTPStreamData &packet);
    // It comes back; false when it is not among them, whatever it points to. Where it was the oldest one,
    // `freeUpTo` becomes the end of the bytes that can be received into again.
    bool Remove(RTPStreamData *packet, const uint8_t *&freeUpTo);
    // Any of them, or null.
    RTPStreamData *Oldest() const { return oldest_; }

private:
    std::size_t Home(const RTPStreamData *packet) const;
    std::size_t Behind(std::size_t slot) const { return (slot + 1) & (slots_ - 1); }
    std::size_t Find(const RTPStreamData *packet) const;
    void Put(RTPStreamData *packet);
    void Clear(std::size_t slot);
    bool Grow();

    RTPStreamData **table_ = nullptr; // open addressing with linear probing; at most half of it is used
    std::size_t slots_ = 0;           // a power of two, or 0
    std::size_t count_ = 0;
    RTPStreamData *oldest_ = nullptr;
    RTPStreamData *newest_ = nullptr;
};

} // namespace rtsptap
