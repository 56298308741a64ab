// When the media of a packet is due, counted from the beginning of a recording: by the sender's timestamps, so that
// what the network does to packets stays out of the file.
#pragma once

#include "base/clock.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace tool {

// What the streams of a session have in common: the moment at which its media begins, once a packet tells it.
struct SessionStart {
    std::chrono::nanoseconds earliest{0}; // the first packet is due no earlier: what has been recorded by then
    std::optional<std::chrono::nanoseconds> begin;
    std::chrono::nanoseconds delay{0}; // of that packet, for what has been recorded
};

class MediaTime {
public:
    // Times begin some seconds above 0, so that there is room for media older than the packet that came first.
    MediaTime(int32_t clockRate, Clock::time_point begin);

    // The packets that follow are a session's. With its timestamp of the beginning the stream is aligned with the
    // others by the sender, without one by arrival.
    void BeginSession(std::shared_ptr<SessionStart> start, std::optional<uint32_t> firstTimestamp);

    // Packets in order. A new source, and timestamps that jump, go on by the time that passed.
    std::chrono::nanoseconds Of(uint32_t ssrc, uint32_t timestamp, Clock::time_point arrival);

private:
    int64_t Align(uint32_t timestamp, int64_t byClock);
    std::chrono::nanoseconds TimeOf(int64_t ticks) const;
    int64_t TicksOf(std::chrono::nanoseconds time) const;

    const int32_t clockRate_;
    bool begun_ = false;
    uint32_t ssrc_ = 0;
    uint32_t timestamp_ = 0;
    Clock::time_point arrival_; // of the packet before
    int64_t ticks_ = 0;         // since the beginning, in units of clockRate_
    std::shared_ptr<SessionStart> start_;
    std::optional<uint32_t> firstTimestamp_; // until the first packet of the session
};

} // namespace tool
