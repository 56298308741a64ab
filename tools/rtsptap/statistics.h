// What one stream delivered, counted from the packets the library hands out.
#pragma once

#include "rtsptap.h"

#include <chrono>
#include <cstdint>
#include <deque>

namespace tool {

using Clock = std::chrono::steady_clock;

class StreamStatistics {
public:
    void Count(const RTPStreamData &packet, Clock::time_point arrival);

    uint64_t Packets() const { return packets_; }
    uint64_t Bytes() const { return bytes_; }         // whole RTP packets, headers included
    uint64_t Reordered() const { return reordered_; } // arrived after a packet of a higher sequence number
    uint64_t Lost() const;                            // expected less received (RFC 3550, A.3)
    double BitsPerSecond() const;                     // 0 before the second packet
    uint16_t FirstSequence() const { return firstSequence_; }
    uint16_t LastSequence() const { return static_cast<uint16_t>(highest_); } // the highest one received
    uint32_t Ssrc() const { return ssrc_; }
    Clock::time_point LastArrival() const { return lastArrival_; }

private:
    void BeginSource(const RTPHeader &header);
    void CountOvertaken(uint32_t packetIndex);
    uint64_t LostFromSource() const;

    uint64_t packets_ = 0;
    uint64_t bytes_ = 0;
    uint64_t reordered_ = 0;
    Clock::time_point firstArrival_;
    Clock::time_point lastArrival_;

    // One source (SSRC) at a time; a new one starts its sequence numbers anew.
    uint32_t ssrc_ = 0;
    uint16_t firstSequence_ = 0;
    uint64_t base_ = 0;    // extended sequence number of the source's first packet
    uint64_t highest_ = 0; // extended: wraps counted in the upper bits
    uint64_t sourcePackets_ = 0;
    uint64_t lostBefore_ = 0; // of earlier sources

    std::deque<uint32_t> overtaking_; // packetIndex of recent packets that no later one undercut, ascending
};

} // namespace tool
