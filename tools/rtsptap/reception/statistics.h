// What one stream delivered, over reconnections: the library's figures of its sessions, and when packets were
// taken.
#pragma once

#include "base/clock.h"
#include "rtsptap_extended.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>

namespace tool {

class StreamStatistics {
public:
    // Of the session under way; those of packets that nobody has taken yet wait for the first one that is.
    void Update(const RTSPTapStreamStatistics &figures) {
        if (firstArrival_ != Clock::time_point{}) now_ = figures;
    }
    void NoteArrival(Clock::time_point arrival); // packets were taken
    void BeginSession(); // what comes next comes from a new session: the numbers between are not lost

    uint64_t Packets() const { return before_.packets + now_.packets; }
    uint64_t Bytes() const { return before_.bytes + now_.bytes; }             // whole RTP packets, headers included
    uint64_t Reordered() const { return before_.reordered + now_.reordered; } // behind a higher number
    uint64_t Duplicates() const { return before_.duplicates + now_.duplicates; } // they make up for no loss
    uint64_t Lost() const { return before_.missing + now_.missing; }             // RFC 3550, A.3
    uint64_t Expected() const { return before_.expected + now_.expected; }
    uint64_t DroppedByKernel() const { return before_.droppedByKernel + now_.droppedByKernel; }
    double LossPercent() const;
    double BitsPerSecond() const; // 0 before the second packet
    // Interarrival jitter now (RFC 3550, A.8), and over all packets; none before the first packet.
    std::optional<double> JitterMs() const { return Milliseconds(now_.jitterUs); }
    std::optional<double> MeanJitterMs() const { return Milliseconds(MeanJitterUs()); }
    std::optional<double> MaxJitterMs() const {
        return Milliseconds(std::max(before_.mostJitterUs, now_.mostJitterUs));
    }
    uint16_t FirstSequence() const {
        return static_cast<uint16_t>((before_.packets > 0 ? before_ : now_).firstNumber);
    }
    uint16_t LastSequence() const {
        return static_cast<uint16_t>(Latest().highestNumber);
    } // the highest one received
    uint32_t Ssrc() const { return Latest().ssrc; }
    int32_t Queued() const { return now_.queuedPackets; }            // packets that are received and not taken
    Clock::time_point FirstArrival() const { return firstArrival_; } // of no packet: the clock's beginning
    Clock::time_point LastArrival() const { return lastArrival_; }
    Clock::duration LongestGap() const { return longestGap_; } // between two packets, over reconnections, too

    // Stretches of at least kOutage without a packet, from the first one on; WithoutMedia is their sum.
    static constexpr auto kOutage = std::chrono::seconds(1);
    uint64_t Outages() const { return outages_; }
    Clock::duration WithoutMedia() const { return withoutMedia_; }
    void EndAt(Clock::time_point end); // nothing more came until then

private:
    void CountGap(Clock::duration gap);
    double MeanJitterUs() const;
    std::optional<double> Milliseconds(double microseconds) const;
    const RTSPTapStreamStatistics &Latest() const { return now_.packets > 0 ? now_ : before_; }

    RTSPTapStreamStatistics before_{}; // the sum of what ended sessions brought
    RTSPTapStreamStatistics now_{};
    Clock::time_point firstArrival_;
    Clock::time_point lastArrival_;
    Clock::duration longestGap_{};
    uint64_t outages_ = 0;
    Clock::duration withoutMedia_{};
};

} // namespace tool
