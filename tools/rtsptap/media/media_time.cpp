#include "media/media_time.h"

#include <algorithm>
#include <cstdlib>

namespace tool {
namespace {

constexpr int64_t kNanoseconds = 1000000000;
constexpr int64_t kJumpSeconds = 10; // timestamps that leave the clock by so much have been set anew

} // namespace

std::chrono::nanoseconds MediaTime::Of(const RTPHeader &header, Clock::time_point arrival) {
    const std::chrono::duration<double> passed = arrival - arrival_;
    const auto byClock = static_cast<int64_t>(passed.count() * clockRate_);
    const auto bySender = static_cast<int64_t>(static_cast<int32_t>(header.timestamp - timestamp_));
    const bool follows = begun_ && header.ssrc == ssrc_;
    const bool jumps = std::abs(bySender - byClock) > kJumpSeconds * clockRate_;
    ticks_ += follows && !jumps ? bySender : byClock;
    begun_ = true;
    ssrc_ = header.ssrc;
    timestamp_ = header.timestamp;
    arrival_ = arrival;
    const int64_t ticks = std::max<int64_t>(ticks_, 0);
    return std::chrono::nanoseconds(ticks / clockRate_ * kNanoseconds +
                                    ticks % clockRate_ * kNanoseconds / clockRate_);
}

} // namespace tool
