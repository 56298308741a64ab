// What goes into the datagrams: RTP packets of a unit (RFC 3550, 5.1; RFC 6184, 5.6 to 5.8) and sender reports.
// Bytes only; who sends them, and when, is elsewhere.
#pragma once

#include "clip.h"

#include <vector>

namespace demo {

// The numbers of one stream to one player. They go on over pauses and over the clip's end.
struct RtpSource {
    uint32_t ssrc = 0;
    uint32_t firstTime = 0; // time stamp of the session's beginning
    uint16_t sequence = 0;  // of the next packet
    uint32_t packets = 0;   // sent so far
    uint32_t octets = 0;    // of payload
    bool isFresh = true;    // begins now, or again after a pause: sound is marked (RFC 3551, 4.1)
};

using Packet = std::vector<uint8_t>;

// The packets of the track's unit number `unit`, counted on over the clip's end.
std::vector<Packet> PacketsOfUnit(const Track &track, uint64_t unit, RtpSource &source);

// A sender report with a CNAME, for `elapsedUs` after the session's beginning (RFC 3550, 6.4.1).
Packet SenderReport(const Track &track, const RtpSource &source, int64_t elapsedUs);

} // namespace demo
