#include "statistics.h"

#include <algorithm>

namespace tool {
namespace {

constexpr uint16_t kHalfTheNumbers = 0x8000; // a larger step forward is a step back
constexpr std::size_t kReorderWindow = 512;  // packets; the library moves none further than 500 numbers

} // namespace

void StreamStatistics::Count(const RTPStreamData &packet, Clock::time_point arrival) {
    const RTPHeader &header = *packet.rtpHeader;
    if (packets_ == 0) firstArrival_ = arrival;
    if (packets_ == 0 || header.ssrc != ssrc_) BeginSource(header);
    lastArrival_ = arrival;
    ++packets_;
    ++sourcePackets_;
    bytes_ += packet.packetLength;

    const auto step = static_cast<uint16_t>(header.sequenceNumber - static_cast<uint16_t>(highest_));
    if (step < kHalfTheNumbers) {
        highest_ += step;
        CountOvertaken(packet.packetIndex);
    } else {
        ++reordered_; // too late for the library's queue to put it in its place
    }
}

uint64_t StreamStatistics::Lost() const { return lostBefore_ + LostFromSource(); }

double StreamStatistics::BitsPerSecond() const {
    const double seconds = std::chrono::duration<double>(lastArrival_ - firstArrival_).count();
    return seconds > 0 ? static_cast<double>(bytes_) * 8 / seconds : 0;
}

void StreamStatistics::BeginSource(const RTPHeader &header) {
    lostBefore_ += LostFromSource();
    sourcePackets_ = 0;
    ssrc_ = header.ssrc;
    if (packets_ == 0) firstSequence_ = header.sequenceNumber;
    base_ = header.sequenceNumber;
    highest_ = header.sequenceNumber;
}

// The library hands packets out in sequence order and numbers them in order of arrival. A packet that follows here
// with a lower number arrived earlier: those before it with higher numbers were late.
void StreamStatistics::CountOvertaken(uint32_t packetIndex) {
    while (!overtaking_.empty() && static_cast<int32_t>(overtaking_.back() - packetIndex) > 0) {
        overtaking_.pop_back();
        ++reordered_;
    }
    overtaking_.push_back(packetIndex);
    if (overtaking_.size() > kReorderWindow) overtaking_.pop_front();
}

// Duplicates can outweigh losses; the sum is then unknown, not negative.
uint64_t StreamStatistics::LostFromSource() const {
    if (sourcePackets_ == 0) return 0;
    const uint64_t expected = highest_ - base_ + 1;
    return expected - std::min(expected, sourcePackets_);
}

} // namespace tool
