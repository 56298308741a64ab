// Where the next packet may lie in a stream's receive buffer. Pure arithmetic on three offsets.
// The receive thread places and advances; the application gives space back by moving readIndex.
//
//    0        readIndex        writeIndex        bufferEnd = size
//    |  free  |  packets in use  |     free        |   kRingSlackBytes of zeros
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace rtsptap {

// The longest offset that a packet's own header can claim for its payload: (15 + 3) * 4 bytes of header and
// CSRCs, 4 of extension header, 0x3FFF * 4 of extension. Zeroed slack of that size behind the ring keeps
// every payload pointer inside the allocation.
inline constexpr std::size_t kRingSlackBytes = 72 + 4 + 0x3FFF * 4;

struct ReceiveRing {
    // Receive thread only, except that the pointer and size are constant while packets are out.
    uint8_t *storage = nullptr; // owned, free(); size + kRingSlackBytes bytes
    int64_t size = 0;           // bytes that packets may use
    int64_t writeIndex = 0;     // where the next packet is received
    int64_t bufferEnd = 0;      // end of the current pass

    std::atomic<int64_t> readIndex{0}; // just past the last packet given back; application writes, thread resets
};

enum class RingRoom {
    kReady,       // a packet of up to `room` bytes may be received at `writeIndex`
    kWrapped,     // the same, after going back to the start
    kFullBehind,  // full: the writer stands close behind the reader
    kFullAtEnd    // full: neither the end nor the start has room
};

struct RingPlace {
    RingRoom verdict = RingRoom::kFullBehind;
    int64_t room = 0; // contiguous bytes at writeIndex, at most the MTU
};

// Decides where the next packet goes. `mtu` in bytes, at least 1.
RingPlace PlaceNextPacket(ReceiveRing &ring, uint32_t mtu);

// Treats the ring as empty: nothing in it is queued or held any more.
void EmptyRing(ReceiveRing &ring);

// Gives the ring a storage of `size` bytes, zeroed; false when memory is short (the ring then has none).
bool AllocateRing(ReceiveRing &ring, int32_t size);
void ReleaseRing(ReceiveRing &ring);

} // namespace rtsptap
