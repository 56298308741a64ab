#include "media/reorder_buffer.h"

#include <algorithm>
#include <cstdlib>

namespace tool {
namespace {

constexpr std::size_t kMostHeld = 65536; // packets; more than this is not waited for

// A sender that begins anew a little behind where it was, or one path of two that lags: the first has nothing else
// for so long.
constexpr int kBehindPackets = 32;
constexpr auto kBehindTime = std::chrono::milliseconds(500);

constexpr int64_t kRoomBelow = 1 << 20; // extended numbers begin there, so that none is negative

} // namespace

HeldPacket CopyOf(const RTPStreamData &packet, Clock::time_point arrival) {
    const RTPHeader &header = *packet.rtpHeader;
    return {header.sequenceNumber,
            header.timestamp,
            header.ssrc,
            static_cast<uint8_t>(header.payloadType),
            header.marker != 0,
            arrival,
            {packet.packetData, packet.packetData + packet.packetLength}};
}

void ReorderBuffer::Begin(std::chrono::milliseconds window) {
    Flush();
    begun_ = false;
    astray_.reset();
    window_ = window;
}

void ReorderBuffer::Put(HeldPacket packet) {
    if (window_.count() == 0) return due_.push_back(std::move(packet));
    Pass(packet.arrival);
    if (!begun_ || packet.ssrc != ssrc_) BeginSource(packet);
    if (IsAstray(packet)) return;
    int64_t number = NumberOf(packet.sequence);
    Advance(number);
    bool isDuplicate = seen_.test(Bit(number));
    bool isLate = givenAny_ && number < next_;
    if ((isDuplicate || isLate) && GoesOnBehind(packet)) {
        BeginSource(packet);
        number = NumberOf(packet.sequence);
        isDuplicate = isLate = false;
    }
    seen_.set(Bit(number));
    late_ += isLate && !isDuplicate ? 1 : 0;
    if (isDuplicate || isLate) return;
    behind_ = 0;
    arrivals_.emplace_back(number, waited_ - (looked_ - packet.arrival)); // a stray is put in later than it came
    held_.emplace(number, std::move(packet));
}

std::optional<HeldPacket> ReorderBuffer::Next(Clock::time_point now) {
    Pass(now);
    if (due_.empty() && !IsDue()) return std::nullopt;
    if (due_.empty()) return TakeFirst();
    HeldPacket first = std::move(due_.front());
    due_.pop_front();
    return first;
}

void ReorderBuffer::Flush() {
    while (!held_.empty()) due_.push_back(TakeFirst());
}

void ReorderBuffer::FlushToGap() {
    while (!held_.empty() && (!givenAny_ || IsDue())) due_.push_back(TakeFirst());
    held_.clear();
    arrivals_.clear();
}

void ReorderBuffer::BeginSource(const HeldPacket &packet) {
    Flush();
    begun_ = true;
    givenAny_ = false;
    ssrc_ = packet.ssrc;
    highest_ = kRoomBelow + packet.sequence;
    seen_.reset();
    astray_.reset();
    behind_ = 0;
}

int64_t ReorderBuffer::NumberOf(uint16_t sequence) const {
    return highest_ + static_cast<int16_t>(sequence - static_cast<uint16_t>(highest_));
}

// A sender that begins anew without a new SSRC shows by two packets near one another (RFC 3550, A.1). The first of
// them is kept until then.
bool ReorderBuffer::IsAstray(const HeldPacket &packet) {
    const int64_t step = NumberOf(packet.sequence) - highest_;
    if (step < kReach && step > -kReach) {
        astray_.reset();
        return false;
    }
    const bool isAlone = !astray_ || std::abs(static_cast<int16_t>(packet.sequence - astray_->sequence)) >= kReach;
    if (isAlone) {
        astray_ = packet;
        return true;
    }
    HeldPacket first = *std::move(astray_);
    BeginSource(first);
    Put(std::move(first));
    return false;
}

bool ReorderBuffer::GoesOnBehind(const HeldPacket &packet) {
    if (behind_++ == 0) behindSince_ = packet.arrival;
    return behind_ > kBehindPackets && packet.arrival - behindSince_ > kBehindTime;
}

// Bits of the numbers skipped were those of numbers that are now out of reach.
void ReorderBuffer::Advance(int64_t number) {
    for (int64_t passed = highest_ + 1; passed <= number; ++passed) seen_.reset(Bit(passed));
    highest_ = std::max(highest_, number);
}

// Where this process was held up, packets that came in time lie unread in a queue.
void ReorderBuffer::Pass(Clock::time_point now) {
    constexpr Clock::duration kLongestLook = std::chrono::milliseconds(100);
    if (now <= looked_) return;
    waited_ += std::min(now - looked_, kLongestLook);
    looked_ = now;
}

bool ReorderBuffer::IsDue() {
    if (held_.empty()) return false;
    if (givenAny_ && held_.begin()->first == next_) return true;
    return waited_ - arrivals_.front().second >= window_ || held_.size() > kMostHeld;
}

HeldPacket ReorderBuffer::TakeFirst() {
    auto first = held_.extract(held_.begin());
    givenAny_ = true;
    next_ = first.key() + 1;
    while (!arrivals_.empty() && held_.find(arrivals_.front().first) == held_.end()) arrivals_.pop_front();
    return std::move(first.mapped());
}

} // namespace tool
