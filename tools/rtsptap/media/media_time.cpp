#include "media/media_time.h"

#include <algorithm>
#include <cstdlib>

namespace tool {
namespace {

using std::chrono::nanoseconds;

constexpr int64_t kNanoseconds = 1000000000;
constexpr int64_t kJumpSeconds = 10; // timestamps that leave the clock by so much have been set anew
constexpr auto kHeadroom = std::chrono::seconds(5);
constexpr auto kMostSkew = std::chrono::seconds(5); // a sender that sets streams so far apart does not know

} // namespace

MediaTime::MediaTime(int32_t clockRate, Clock::time_point begin)
    : clockRate_(clockRate), arrival_(begin - kHeadroom) {}

void MediaTime::BeginSession(std::shared_ptr<SessionStart> start, std::optional<uint32_t> firstTimestamp) {
    start_ = std::move(start);
    firstTimestamp_ = firstTimestamp;
    begun_ = false; // a server that began anew may count from where it once was
}

nanoseconds MediaTime::Of(uint32_t ssrc, uint32_t timestamp, Clock::time_point arrival) {
    const std::chrono::duration<double> passed = arrival - arrival_;
    const auto byClock = static_cast<int64_t>(passed.count() * clockRate_);
    const auto bySender = static_cast<int64_t>(static_cast<int32_t>(timestamp - timestamp_));
    const bool follows = begun_ && ssrc == ssrc_;
    const bool goesBack = bySender < -int64_t{clockRate_}; // farther than pictures that refer to later ones
    const bool jumps = goesBack || std::abs(bySender - byClock) > kJumpSeconds * clockRate_;
    if (firstTimestamp_)
        ticks_ = Align(timestamp, ticks_ + byClock);
    else
        ticks_ += follows && !jumps ? bySender : byClock;
    begun_ = true;
    ssrc_ = ssrc;
    timestamp_ = timestamp;
    arrival_ = arrival;
    return TimeOf(std::max<int64_t>(ticks_, 0));
}

// The stream whose packet comes first tells when the session begins; the others follow.
int64_t MediaTime::Align(uint32_t timestamp, int64_t byClock) {
    const nanoseconds offset = TimeOf(static_cast<int32_t>(timestamp - *firstTimestamp_));
    firstTimestamp_.reset();
    if (!start_->begin) {
        start_->delay = std::max(start_->earliest - TimeOf(byClock), nanoseconds(0));
        start_->begin = TimeOf(byClock) + start_->delay - offset;
    }
    const nanoseconds bySender = *start_->begin + offset;
    const nanoseconds skew = bySender - start_->delay - TimeOf(byClock);
    return std::chrono::abs(skew) > kMostSkew ? byClock : TicksOf(bySender);
}

nanoseconds MediaTime::TimeOf(int64_t ticks) const {
    return nanoseconds(ticks / clockRate_ * kNanoseconds + ticks % clockRate_ * kNanoseconds / clockRate_);
}

int64_t MediaTime::TicksOf(nanoseconds time) const {
    const int64_t count = time.count();
    return count / kNanoseconds * clockRate_ + count % kNanoseconds * clockRate_ / kNanoseconds;
}

} // namespace tool
