#include "media/media_time.h"

#include <algorithm>
#include <cstdlib>

namespace tool {
namespace {

using std::chrono::nanoseconds;

constexpr int64_t kNanoseconds = 1000000000;
constexpr int64_t kJumpSeconds = 10; // timestamps that leave the clock by so much have been set anew
constexpr auto kHeadroom = std::chrono::seconds(5);
constexpr auto kMostSkew = std::chrono::seconds(5);       // a sender that sets streams so far apart does not know
constexpr auto kSetClock = std::chrono::seconds(1);       // by so much no clock strays between two reports
constexpr auto kExact = std::chrono::microseconds(100);   // nothing is moved for less ...
constexpr auto kTolerated = std::chrono::milliseconds(2); // ... or once it is written
constexpr int kSlowness = 20; // what is written moves by this part of the time that passes

} // namespace

MediaTime::MediaTime(int32_t clockRate, Clock::time_point begin)
    : clockRate_(clockRate), arrival_(begin - kHeadroom) {}

void MediaTime::BeginSession(std::shared_ptr<SessionStart> start, std::optional<uint32_t> firstTimestamp) {
    start_ = std::move(start);
    firstTimestamp_ = firstTimestamp;
    begun_ = false; // a server that began anew may count from where it once was
    ticks_ += TicksOf(shift_);
    shift_ = set_ = nanoseconds(0);
    ahead_.reset();
    floor_ = highest_;
}

nanoseconds MediaTime::Of(const HeldPacket &packet, bool mayMove, nanoseconds &moved) {
    const bool isFirst = !begun_;
    const nanoseconds shift = shift_;
    Advance(packet);
    const nanoseconds passed = std::max(TimeOf(ticks_) + shift_ - highest_, nanoseconds(0));
    if (packet.sent) FollowClock(*packet.sent, mayMove || isFirst, passed);
    moved = mayMove && !isFirst ? shift_ - shift : nanoseconds(0);
    const nanoseconds time = std::max(TimeOf(ticks_) + shift_, floor_);
    highest_ = std::max(highest_ + moved, time);
    return time;
}

void MediaTime::Advance(const HeldPacket &packet) {
    const uint32_t timestamp = packet.timestamp;
    const std::chrono::duration<double> passed = packet.arrival - arrival_;
    const auto byClock = static_cast<int64_t>(passed.count() * clockRate_);
    const auto bySender = static_cast<int64_t>(static_cast<int32_t>(timestamp - timestamp_));
    const bool follows = begun_ && packet.ssrc == ssrc_;
    const bool goesBack = bySender < -int64_t{clockRate_}; // farther than pictures that refer to later ones
    const bool jumps = goesBack || std::abs(bySender - byClock) > kJumpSeconds * clockRate_;
    if (firstTimestamp_)
        ticks_ = Align(timestamp, ticks_ + byClock);
    else
        ticks_ += follows && !jumps ? bySender : byClock;
    begun_ = true;
    ssrc_ = packet.ssrc;
    timestamp_ = timestamp;
    arrival_ = packet.arrival;
}

// The stream whose sender tells its clock first stays where it is, the others are put beside it. A clock that was
// set goes on as it was: it is, for all streams, though their reports tell it one after the other.
void MediaTime::FollowClock(nanoseconds sent, bool atOnce, nanoseconds passed) {
    const nanoseconds ahead = sent - TimeOf(ticks_);
    if (ahead_ && std::chrono::abs(ahead - *ahead_) > kSetClock) set_ += ahead - *ahead_;
    ahead_ = ahead;
    if (!start_->clock) start_->clock = ahead - set_ - shift_;
    const nanoseconds error = ahead - set_ - *start_->clock - shift_;
    if (std::chrono::abs(error) > kMostSkew) return;
    if (atOnce && std::chrono::abs(error) > kExact) shift_ += error;
    if (atOnce || std::chrono::abs(error) <= kTolerated) return;
    shift_ += std::clamp(error, -passed / kSlowness, passed / kSlowness);
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
