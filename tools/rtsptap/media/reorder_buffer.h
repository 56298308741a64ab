// Puts one stream's packets in order before their payloads are put together, which nothing can do afterwards: a
// packet behind a gap waits until the gap is filled, but no longer than the window. The packets are copies: the
// receive buffer they came in goes on without waiting. One thread at a time.
#pragma once

#include "base/clock.h"
#include "rtsptap.h"

#include <bitset>
#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <vector>

namespace tool {

struct HeldPacket {
    uint16_t sequence = 0;
    uint32_t timestamp = 0;
    uint32_t ssrc = 0;
    uint8_t payloadType = 0;
    bool marker = false;
    Clock::time_point arrival;
    std::vector<uint8_t> bytes;                        // the whole packet
    std::optional<std::chrono::nanoseconds> sent = {}; // by the sender's clock; none: it has not told
};

HeldPacket CopyOf(const RTPStreamData &packet, Clock::time_point arrival);

class ReorderBuffer {
public:
    // From now on; 0: packets go on as they come. What is held goes on, whatever is missing before it: what follows
    // is another session's.
    void Begin(std::chrono::milliseconds window);

    void Put(HeldPacket packet);
    std::optional<HeldPacket> Next(Clock::time_point now); // none while one before it may still come
    void Flush();                                          // all that is held is due
    void FlushToGap(); // what is behind a gap that may still be filled is discarded, the rest is due

    uint64_t Late() const { return late_; } // came behind their window; duplicates are not counted

private:
    static constexpr int64_t kReach = 8192; // sequence numbers; what is farther from all that came is astray

    static std::size_t Bit(int64_t number) { return static_cast<std::size_t>(number % kReach); }
    void BeginSource(const HeldPacket &packet);
    int64_t NumberOf(uint16_t sequence) const;
    bool IsAstray(const HeldPacket &packet);
    bool GoesOnBehind(const HeldPacket &packet);
    void Advance(int64_t number);
    bool IsDue();
    void Pass(Clock::time_point now);
    HeldPacket TakeFirst();

    std::chrono::milliseconds window_{0};
    std::deque<HeldPacket> due_; // in order

    // Of one sender, by extended sequence numbers.
    bool begun_ = false;
    bool givenAny_ = false; // next_ is known: before the first one, earlier ones are waited for, too
    uint32_t ssrc_ = 0;
    int64_t highest_ = 0;
    int64_t next_ = 0;
    std::map<int64_t, HeldPacket> held_;
    std::deque<std::pair<int64_t, Clock::duration>> arrivals_; // of held_ and of some that are gone; in waited_
    std::bitset<kReach> seen_;                                 // the latest numbers, by their lower bits
    std::optional<HeldPacket> astray_;                         // the packet before, when it was
    int behind_ = 0;                                           // packets in a row that brought nothing new
    Clock::time_point behindSince_;

    uint64_t late_ = 0;
    Clock::time_point looked_;
    Clock::duration waited_{0}; // the time that passed, without stretches in which nobody could look
};

} // namespace tool
