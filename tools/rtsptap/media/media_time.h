// When the media of a packet is due, counted from the beginning of a recording: by the sender's timestamps, so that
// what the network does to packets stays out of the file.
#pragma once

#include "media/reorder_buffer.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace tool {

// What the streams of a session have in common: the moment at which its media begins, once a packet tells it.
struct SessionStart {
    std::chrono::nanoseconds earliest{0}; // the first packet is due no earlier: what has been recorded by then
    std::optional<std::chrono::nanoseconds> begin;
    std::chrono::nanoseconds delay{0};             // of that packet, for what has been recorded
    std::optional<std::chrono::nanoseconds> clock; // what the sender's clock shows at 0, once it tells
};

class MediaTime {
public:
    // Times begin some seconds above 0, so that there is room for media older than the packet that came first.
    MediaTime(int32_t clockRate, Clock::time_point begin);

    // The packets that follow are a session's. With its timestamp of the beginning the stream is aligned with the
    // others by the sender, without one by arrival, until the sender tells its clock.
    void BeginSession(std::shared_ptr<SessionStart> start, std::optional<uint32_t> firstTimestamp);

    // Packets in order. A new source, and timestamps that jump, go on by the time that passed. When the sender's
    // clock shows that the stream is out of place, it moves there: at once as long as those before may be `moved`
    // by so much, too, which is not for those that are written, and else little by little, so that no time goes
    // back.
    std::chrono::nanoseconds Of(const HeldPacket &packet, bool mayMove, std::chrono::nanoseconds &moved);

    bool HasClock() const { return ahead_.has_value(); } // the sender has told it in this session

private:
    void Advance(const HeldPacket &packet);
    void FollowClock(std::chrono::nanoseconds sent, bool atOnce, std::chrono::nanoseconds passed);
    int64_t Align(uint32_t timestamp, int64_t byClock);
    std::chrono::nanoseconds TimeOf(int64_t ticks) const;
    int64_t TicksOf(std::chrono::nanoseconds time) const;

    const int32_t clockRate_;
    bool begun_ = false;
    uint32_t ssrc_ = 0;
    uint32_t timestamp_ = 0;
    Clock::time_point arrival_;                     // of the packet before
    int64_t ticks_ = 0;                             // since the beginning, in units of clockRate_
    std::chrono::nanoseconds shift_{0};             // from there to where the sender's clock puts it
    std::chrono::nanoseconds highest_{0};           // that there was
    std::chrono::nanoseconds floor_{0};             // what was before the session
    std::optional<std::chrono::nanoseconds> ahead_; // of ticks_ is the sender's clock
    std::chrono::nanoseconds set_{0};               // by so much that clock was set
    std::shared_ptr<SessionStart> start_ = std::make_shared<SessionStart>();
    std::optional<uint32_t> firstTimestamp_; // until the first packet of the session
};

} // namespace tool
