// What one stream delivered, counted from the packets the library hands out.
#pragma once

#include "base/clock.h"
#include "rtsptap.h"

#include <bitset>
#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>

namespace tool {

class StreamStatistics {
public:
    explicit StreamStatistics(int32_t clockRate = 0) : clockRate_(clockRate) {} // 0: not known, so no jitter

    void Count(const RTPStreamData &packet, Clock::time_point arrival);
    void BeginSession(); // what comes next comes from a new session: the numbers between are not lost

    uint64_t Packets() const { return packets_; }
    uint64_t Bytes() const { return bytes_; }           // whole RTP packets, headers included
    uint64_t Reordered() const { return reordered_; }   // arrived after a packet of a higher sequence number
    uint64_t Duplicates() const { return duplicates_; } // arrived again; they make up for no loss
    uint64_t Lost() const;                              // expected less received (RFC 3550, A.3)
    uint64_t Expected() const { return packets_ - duplicates_ + Lost(); }
    double LossPercent() const;
    double BitsPerSecond() const;           // 0 before the second packet
    std::optional<double> JitterMs() const; // interarrival jitter now (RFC 3550, A.8); none before the first packet
    std::optional<double> MeanJitterMs() const;
    std::optional<double> MaxJitterMs() const;
    uint16_t FirstSequence() const { return firstSequence_; }
    uint16_t LastSequence() const { return static_cast<uint16_t>(source_.highest); } // the highest one received
    uint32_t Ssrc() const { return source_.ssrc; }
    Clock::time_point FirstArrival() const { return firstArrival_; } // of no packet: the clock's beginning
    Clock::time_point LastArrival() const { return lastArrival_; }
    Clock::duration LongestGap() const { return longestGap_; } // between two packets, over reconnections, too

    // Stretches of at least kOutage without a packet, from the first one on; WithoutMedia is their sum.
    static constexpr auto kOutage = std::chrono::seconds(1);
    uint64_t Outages() const { return outages_; }
    Clock::duration WithoutMedia() const { return withoutMedia_; }
    void EndAt(Clock::time_point end); // nothing more came until then

private:
    static constexpr std::size_t kWindow = 1024; // sequence numbers back to which duplicates are known

    // One sender (SSRC) at a time; a new one starts its sequence numbers and timestamps anew.
    struct Source {
        uint32_t ssrc = 0;
        uint64_t base = 0;                   // extended sequence number of its first packet
        uint64_t highest = 0;                // extended: wraps counted in the upper bits
        uint64_t received = 0;               // without duplicates
        std::bitset<kWindow> seen;           // the latest numbers, by their lower bits
        std::optional<uint16_t> restartNext; // would continue a jump far back
        uint32_t timestamp = 0;              // of the packet before
        Clock::time_point arrival;
        double jitter = 0; // clock units
    };

    void CountGap(Clock::duration gap);
    void BeginSource(const RTPHeader &header);
    void CountForward(uint16_t step, uint32_t packetIndex);
    void CountBack(const RTPHeader &header, uint16_t distance);
    void CountOvertaken(uint32_t packetIndex);
    void UpdateJitter(const RTPHeader &header, Clock::time_point arrival);
    uint64_t LostFromSource() const;
    std::optional<double> Milliseconds(double clockUnits) const;

    int32_t clockRate_;
    uint64_t packets_ = 0;
    uint64_t bytes_ = 0;
    uint64_t reordered_ = 0;
    uint64_t duplicates_ = 0;
    uint64_t lostBefore_ = 0; // of earlier sources
    Clock::time_point firstArrival_;
    Clock::time_point lastArrival_;
    Clock::duration longestGap_{};
    uint64_t outages_ = 0;
    Clock::duration withoutMedia_{};
    uint16_t firstSequence_ = 0;
    double jitterSum_ = 0; // clock units, one summand for each of jitterCount_ packets
    uint64_t jitterCount_ = 0;
    double jitterMax_ = 0;

    bool begun_ = false; // source_ is that of the session
    Source source_;
    std::deque<uint32_t> overtaking_; // packetIndex of recent packets that no later one undercut, ascending
};

} // namespace tool
