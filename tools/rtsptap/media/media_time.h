// When the media of a packet is due, counted from the beginning of a recording: by the sender's timestamps, so that
// what the network does to packets stays out of the file.
#pragma once

#include "base/clock.h"
#include "rtsptap.h"

namespace tool {

class MediaTime {
public:
    MediaTime(int32_t clockRate, Clock::time_point begin) : clockRate_(clockRate), arrival_(begin) {}

    // Packets in the order they are taken. A new source, and timestamps that jump, go on by the time that passed.
    std::chrono::nanoseconds Of(const RTPHeader &header, Clock::time_point arrival);

private:
    const int32_t clockRate_;
    bool begun_ = false;
    uint32_t ssrc_ = 0;
    uint32_t timestamp_ = 0;
    Clock::time_point arrival_; // of the packet before
    int64_t ticks_ = 0;         // since the beginning, in units of clockRate_
};

} // namespace tool
