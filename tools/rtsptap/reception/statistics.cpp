#include "reception/statistics.h"

#include <algorithm>
#include <cmath>

namespace tool {
namespace {

constexpr uint16_t kHalfTheNumbers = 0x8000; // a larger step forward is a step back
constexpr std::size_t kReorderWindow = 512;  // packets; the library moves none further than 500 numbers
constexpr double kJitterGain = 1.0 / 16;     // RFC 3550, 6.4.1

} // namespace

void StreamStatistics::Count(const RTPStreamData &packet, Clock::time_point arrival) {
    const RTPHeader &header = *packet.rtpHeader;
    if (packets_ == 0) {
        firstArrival_ = lastArrival_ = arrival;
        firstSequence_ = header.sequenceNumber;
    }
    CountGap(arrival - lastArrival_);
    lastArrival_ = arrival;
    ++packets_;
    bytes_ += packet.packetLength;

    if (!begun_ || header.ssrc != source_.ssrc) BeginSource(header);
    const auto step = static_cast<uint16_t>(header.sequenceNumber - LastSequence());
    if (source_.received == 0 || (step > 0 && step < kHalfTheNumbers))
        CountForward(step, packet.packetIndex);
    else
        CountBack(header, static_cast<uint16_t>(-step));
    UpdateJitter(header, arrival);
}

void StreamStatistics::BeginSession() { begun_ = false; }

void StreamStatistics::EndAt(Clock::time_point end) {
    if (packets_ > 0 && end - lastArrival_ >= kOutage) CountGap(end - lastArrival_);
}

void StreamStatistics::CountGap(Clock::duration gap) {
    longestGap_ = std::max(longestGap_, gap);
    if (gap < kOutage) return;
    ++outages_;
    withoutMedia_ += gap;
}

uint64_t StreamStatistics::Lost() const { return lostBefore_ + LostFromSource(); }

double StreamStatistics::LossPercent() const {
    const uint64_t expected = Expected();
    return expected == 0 ? 0 : 100 * static_cast<double>(Lost()) / static_cast<double>(expected);
}

double StreamStatistics::BitsPerSecond() const {
    const double seconds = std::chrono::duration<double>(lastArrival_ - firstArrival_).count();
    return seconds > 0 ? static_cast<double>(bytes_) * 8 / seconds : 0;
}

std::optional<double> StreamStatistics::JitterMs() const { return Milliseconds(source_.jitter); }

std::optional<double> StreamStatistics::MeanJitterMs() const {
    return Milliseconds(jitterCount_ == 0 ? 0 : jitterSum_ / static_cast<double>(jitterCount_));
}

std::optional<double> StreamStatistics::MaxJitterMs() const { return Milliseconds(jitterMax_); }

void StreamStatistics::BeginSource(const RTPHeader &header) {
    lostBefore_ += LostFromSource();
    source_ = {};
    source_.ssrc = header.ssrc;
    source_.base = source_.highest = header.sequenceNumber;
    overtaking_.clear();
    begun_ = true;
}

void StreamStatistics::CountForward(uint16_t step, uint32_t packetIndex) {
    if (step >= kWindow) source_.seen.reset();
    for (uint64_t i = 1; i <= step && step < kWindow; ++i) source_.seen.reset((source_.highest + i) % kWindow);
    source_.highest += step;
    source_.seen.set(source_.highest % kWindow);
    source_.restartNext.reset();
    ++source_.received;
    CountOvertaken(packetIndex);
}

// A sender that begins anew without a new SSRC shows by two packets in sequence, both far back (RFC 3550, A.1).
void StreamStatistics::CountBack(const RTPHeader &header, uint16_t distance) {
    if (distance >= kWindow) {
        const bool restarts = source_.restartNext == header.sequenceNumber;
        ++reordered_;
        ++source_.received;
        source_.restartNext = static_cast<uint16_t>(header.sequenceNumber + 1);
        if (!restarts) return;
        reordered_ -= 2;
        source_.received -= 2;
        BeginSource(header);
        --source_.base;
        source_.received = 2;
        source_.seen.set(source_.base % kWindow);
        source_.seen.set(source_.highest % kWindow);
    } else if (source_.seen.test((source_.highest - distance) % kWindow)) {
        ++duplicates_;
    } else {
        source_.seen.set((source_.highest - distance) % kWindow);
        ++source_.received;
        ++reordered_; // too late for the library's queue to put it in its place
    }
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

// How much later than the packet before it came than its timestamp says, smoothed.
void StreamStatistics::UpdateJitter(const RTPHeader &header, Clock::time_point arrival) {
    const bool first = source_.arrival == Clock::time_point();
    const double passed = std::chrono::duration<double>(arrival - source_.arrival).count() * clockRate_;
    const auto advanced = static_cast<int32_t>(header.timestamp - source_.timestamp);
    source_.arrival = arrival;
    source_.timestamp = header.timestamp;
    if (first) return;
    source_.jitter += (std::abs(passed - advanced) - source_.jitter) * kJitterGain;
    jitterSum_ += source_.jitter;
    jitterMax_ = std::max(jitterMax_, source_.jitter);
    ++jitterCount_;
}

// Packets from before the first one can outweigh losses; the sum is then unknown, not negative.
uint64_t StreamStatistics::LostFromSource() const {
    if (source_.received == 0) return 0;
    const uint64_t expected = source_.highest - source_.base + 1;
    return expected - std::min(expected, source_.received);
}

std::optional<double> StreamStatistics::Milliseconds(double clockUnits) const {
    if (clockRate_ <= 0 || packets_ == 0) return std::nullopt;
    return clockUnits * 1000 / clockRate_;
}

} // namespace tool
