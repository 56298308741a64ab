// Who sends a stream, and which of its numbers have come (RFC 3550, A.1), for clients that ask for it: duplicates
// are told from late packets, and a sender that starts again from a stray packet. Whoever receives.
#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>

namespace rtsptap {

struct RTSPStreamInfo;

inline constexpr uint64_t kNobody = uint64_t{1} << 32; // no SSRC

inline constexpr uint16_t kFarAhead = 3000; // numbers; MAX_DROPOUT of RFC 3550: what is farther is no loss
inline constexpr uint16_t kFarBehind = 500; // what is farther behind is not late

struct ArrivalWatch {
    bool begun = false;
    bool refused = false; // the last packet, silently
    uint16_t highest = 0; // number of the sender's
    std::bitset<kFarBehind> seen;
    // A sender that is believed with its next packet in sequence.
    bool onProbation = false;
    uint32_t newSsrc = 0;
    uint16_t newNext = 0;
};

enum class Sighting {
    kInStream, // of the sender: counted
    kAside,    // of another one, or far from the last: queued, but not counted
    kRefused   // a duplicate
};

// Asked for the packets whose SSRC is not the stream's plainSsrc: the first one, all of those when a client
// watches or has them counted, and those of a second sender otherwise.
Sighting NoteArrival(RTSPStreamInfo &stream, uint32_t ssrc, uint16_t number);

} // namespace rtsptap
