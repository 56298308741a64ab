#include "rtp/packet_queue.h"

#include "platform/printers.h"
#include "platform/system.h"
#include "rtp/delivery.h"
#include "rtp/media_session.h"
#include "rtp/packet_memory.h"
#include "rtp/stream.h"

#include <array>
#include <cstddef>
#include <cstdlib>
#include <span>
#include <utility>

namespace rtsptap {

namespace {

constexpr int32_t kQueueLimit = 1024;
constexpr int32_t kReorderWindow = 500; // a number further behind the newest one has wrapped

// The numbers that a late packet was moved ahead of, newest first, kept for printing after the unlock.
// When memory is short the rest is not printed.
class PassedNumbers {
public:
    PassedNumbers() = default;
    ~PassedNumbers() { std::free(grown_); }
    PassedNumbers(const PassedNumbers &) = delete;
    PassedNumbers &operator=(const PassedNumbers &) = delete;

    void Add(uint16_t number) {
        if (count_ == room_ && !Grow()) return;
        (grown_ != nullptr ? grown_ : few_.data())[count_++] = number;
    }
    std::span<const uint16_t> Get() const { return {grown_ != nullptr ? grown_ : few_.data(), count_}; }

private:
    bool Grow() {
        auto *const larger = static_cast<uint16_t *>(std::realloc(grown_, 2 * room_ * sizeof(uint16_t)));
        if (larger == nullptr) return false;
        for (std::size_t i = 0; grown_ == nullptr && i < count_; ++i) larger[i] = few_[i];
        grown_ = larger;
        room_ *= 2;
        return true;
    }

    std::array<uint16_t, 32> few_; // filled up to count_
    uint16_t *grown_ = nullptr;
    std::size_t count_ = 0;
    std::size_t room_ = few_.size();
};

// What an insertion found and prints when the lock is free again.
struct Findings {
    PassedNumbers passed;
    bool trimmed = false;
    bool discarded = false;
    bool isPassed = false; // it comes too late
};

// Where the reordering rule puts a packet: at the end, or behind `after` (null: before the head).
struct Place {
    bool reordered = false;
    RTPStreamData *after = nullptr;
};

RTPStreamData *HeadOf(const RTSPStreamInfo &stream) {
    return stream.packetListHead.load(std::memory_order_relaxed); // packetListLock is held
}

uint16_t NumberOf(const RTPStreamData &packet) { return packet.rtpHeader->sequenceNumber; }

void AddToCount(RTSPStreamInfo &stream, int32_t change) {
    stream.packetCount.store(stream.packetCount.load(std::memory_order_relaxed) + change,
                             std::memory_order_relaxed);
}

// Sequentially consistent, as a reader's announcement in waitingReaders and its look at the head are: either
// it sees this packet or SignalReaders sees it waiting.
void PublishHead(RTSPStreamInfo &stream, RTPStreamData *packet) {
    stream.packetListHead.store(packet, std::memory_order_seq_cst);
}

void Append(RTSPStreamInfo &stream, RTPStreamData *packet) {
    RTPStreamData *const tail = std::exchange(stream.packetListTail, packet);
    packet->prev = tail;
    if (tail != nullptr)
        tail->next = packet;
    else
        PublishHead(stream, packet);
}

// The application may still look at a packet that Peek showed: that one stays, and the ring with it, until the next
// look or until another one takes its place.
void DropHead(RTSPStreamInfo &stream) {
    RTPStreamData *dropped = TakeHead(stream);
    if (dropped == stream.peekedPacket) {
        stream.peekedPacket = nullptr;
        dropped = std::exchange(stream.deferredPacket, dropped);
        if (dropped == nullptr) return;
    }
    ReturnPacketRecord(stream, dropped);
}

// True when the queue spanned more than overflowLimit, which is not below targetLatency, and was cut down to that.
bool TrimForLatency(RTSPStreamInfo &stream, const RTPStreamData &packet) {
    const int64_t target = stream.session->targetLatency.load(std::memory_order_relaxed) * kTicksPerMs;
    const int64_t overflow = stream.session->overflowLimit.load(std::memory_order_relaxed) * kTicksPerMs;
    if (target <= 0 || TimestampSpan(packet, *HeadOf(stream)) <= overflow) return false;
    while (HeadOf(stream) != nullptr && TimestampSpan(packet, *HeadOf(stream)) > target) {
        CountOne(stream.drops.latency);
        DropHead(stream);
    }
    return true;
}

Place FindPlace(const RTSPStreamInfo &stream, const RTPStreamData &packet, PassedNumbers &passed) {
    RTPStreamData *after = stream.packetListTail;
    const int32_t number = NumberOf(packet);
    if (after == nullptr || number >= NumberOf(*after) || NumberOf(*after) - number >= kReorderWindow) return {};
    while (after != nullptr && NumberOf(*after) > number) {
        passed.Add(NumberOf(*after));
        after = after == HeadOf(stream) ? nullptr : after->prev; // what the head's prev points to may be gone
    }
    return {true, after};
}

// The same where senders are told apart and numbers go round: a packet is late among those of its own sender.
Place FindPlaceOfSender(const RTSPStreamInfo &stream, const RTPStreamData &packet, PassedNumbers &passed) {
    const auto isBehind = [&packet](const RTPStreamData &other) {
        const auto distance = static_cast<uint16_t>(NumberOf(other) - NumberOf(packet));
        return other.rtpHeader->ssrc == packet.rtpHeader->ssrc && distance > 0 && distance < kReorderWindow;
    };
    RTPStreamData *after = stream.packetListTail;
    if (after == nullptr || !isBehind(*after)) return {};
    while (after != nullptr && isBehind(*after)) {
        passed.Add(NumberOf(*after));
        after = after == HeadOf(stream) ? nullptr : after->prev;
    }
    return {true, after};
}

Place FindItsPlace(const RTSPStreamInfo &stream, const RTPStreamData &packet, const ArrivalRules &rules,
                   PassedNumbers &passed) {
    const bool inOrder = stream.session->reorderWaitMs.load(std::memory_order_relaxed) != 0;
    if (inOrder || (rules.reorder && stream.watch.begun)) return FindPlaceOfSender(stream, packet, passed);
    return rules.reorder ? FindPlace(stream, packet, passed) : Place{};
}

// Where missing packets are waited for: notes when it came. False when others were handed out in spite of it.
bool IsInTime(const RTSPStreamInfo &stream, RTPStreamData &packet) {
    if (stream.session->reorderWaitMs.load(std::memory_order_relaxed) == 0) return true;
    BlockOf(packet).arrivedMs = MonotonicMs();
    return !IsPassed(stream.order, *packet.rtpHeader);
}

void LinkBehind(RTSPStreamInfo &stream, RTPStreamData *after, RTPStreamData *packet) {
    RTPStreamData *const behind = after != nullptr ? after->next : HeadOf(stream);
    packet->prev = after;
    packet->next = behind;
    behind->prev = packet;
    if (after != nullptr)
        after->next = packet;
    else
        PublishHead(stream, packet);
    // Its bytes lie behind those of the packets it was moved ahead of: the last of them gives them back.
    RingClaim &claim = ClaimOf(*packet);
    ClaimOf(*stream.packetListTail).end = claim.end;
    claim.begin = claim.end = ClaimOf(*behind).begin;
}

// Kept: the packet that takes the place of the dropped one is not counted, so from here on packetCount
// swings between 1023 and 1024 while the queue grows by one packet every second arrival.
void InsertAtLimit(RTSPStreamInfo &stream, RTPStreamData *packet) {
    CountOne(stream.drops.limit);
    if (HeadOf(stream) != nullptr) DropHead(stream);
    if (HeadOf(stream) != nullptr) HeadOf(stream)->prev = nullptr;
    Append(stream, packet);
}

void Insert(RTSPStreamInfo &stream, RTPStreamData *packet, const ArrivalRules &rules, Findings &found) {
    found.isPassed = !IsInTime(stream, *packet);
    if (found.isPassed) return;
    if (HeadOf(stream) != nullptr) found.trimmed = TrimForLatency(stream, *packet);
    const Place place = FindItsPlace(stream, *packet, rules, found.passed);
    found.discarded = stream.packetCount.load(std::memory_order_relaxed) == kQueueLimit;
    if (found.discarded) return InsertAtLimit(stream, packet);
    if (place.reordered)
        LinkBehind(stream, place.after, packet);
    else
        Append(stream, packet);
    AddToCount(stream, 1);
}

// What becomes of nearly every packet: it goes behind the newest one, and there is nothing to tell. False when more
// has to be looked at; nothing has changed then.
bool AppendsPlainly(RTSPStreamInfo &stream, RTPStreamData *packet, const ArrivalRules &rules) {
    if (stream.session->targetLatency.load(std::memory_order_relaxed) != 0) return false;
    const ScopedShortLock lock(stream.packetListLock);
    const RTPStreamData *const tail = stream.packetListTail;
    const bool isLate = rules.reorder && tail != nullptr && NumberOf(*packet) < NumberOf(*tail);
    if (isLate || stream.packetCount.load(std::memory_order_relaxed) == kQueueLimit) return false;
    Append(stream, packet);
    AddToCount(stream, 1);
    CountHandled(stream); // under the lock: who has taken the packet finds it counted
    return true;
}

void Print(const Findings &found, const ArrivalRules &rules, uint16_t lastNumber, uint16_t number) {
    if (rules.announceDrops && found.trimmed)
        PrintEvent("Removed old packet from queue (stream %u)\n", rules.channel);
    for (const uint16_t passed : found.passed.Get())
        PrintEvent("Reordering :: sequenceNumber : sequenceNumber prev :: %d : %d \n", number, passed);
    if (rules.announceDrops && found.discarded)
        PrintEvent("Discarding packet :%u : %u stream:%u (too many packets)\n", lastNumber, number, rules.channel);
}

} // namespace

namespace {

[[gnu::noinline]] void InsertWithCare(RTSPStreamInfo &stream, RTPStreamData *packet, const ArrivalRules &rules) {
    const uint16_t number = NumberOf(*packet); // once it is queued the application may take and free it
    Findings found;
    {
        const ScopedShortLock lock(stream.packetListLock);
        Insert(stream, packet, rules, found);
        if (!found.isPassed) CountHandled(stream);
    }
    if (found.isPassed) {
        stream.session->lateDropped.fetch_add(1, std::memory_order_relaxed);
        CountOne(stream.drops.late);
        return ReturnPacketRecord(stream, packet);
    }
    Print(found, rules, stream.lastSeqNum.load(std::memory_order_relaxed), number);
}

} // namespace

void InsertPacket(RTSPStreamInfo &stream, RTPStreamData *packet, const ArrivalRules &rules) {
    if (!AppendsPlainly(stream, packet, rules)) InsertWithCare(stream, packet, rules);
}

void CountHandled(RTSPStreamInfo &stream) {
    stream.handled.store(stream.handled.load(std::memory_order_relaxed) + 1, std::memory_order_release);
}

void SignalReaders(RTSPStreamInfo &stream) {
    if (stream.session->loop.watch != nullptr) NoteReady(stream);
    if (stream.waitingReaders.load(std::memory_order_seq_cst) == 0) return;
    {
        // A reader that has announced itself and saw no packet is inside the wait once the lock has been free. One
        // that has taken all that was handled waits for what comes next: waking it would be a false alarm.
        const ScopedLock readerWaits(stream.signalLock);
        if (stream.handled.load(std::memory_order_relaxed) == stream.handledBeforeWait) return;
    }
    // After the lock is released: the reader does not wake up only to wait for it.
    SignalOnConditionVar(&stream.dataCondition);
}

void EndReaderWaits(RTSPStreamInfo &stream) {
    stream.receptionsEnded.fetch_add(1, std::memory_order_seq_cst);
    if (stream.waitingReaders.load(std::memory_order_seq_cst) == 0) return;
    // A reader that saw no reason not to wait is inside the wait once the lock has been free.
    { const ScopedLock readerWaits(stream.signalLock); }
    pthread_cond_broadcast(&stream.dataCondition);
}

// Kept: neither the packet's next nor the new head's prev is cleared.
RTPStreamData *TakeHead(RTSPStreamInfo &stream) {
    RTPStreamData *const packet = HeadOf(stream);
    RTPStreamData *const head = packet->next;
    if (head == nullptr) stream.packetListTail = nullptr;
    stream.packetListHead.store(head, std::memory_order_release);
    AddToCount(stream, -1);
    return packet;
}

void FreeDeferredPacket(RTSPStreamInfo &stream) {
    RTPStreamData *const packet = std::exchange(stream.deferredPacket, nullptr);
    if (packet != nullptr) ReturnPacketRecord(stream, packet);
}

void DropAllPackets(RTSPStreamInfo &stream) {
    while (HeadOf(stream) != nullptr) DropHead(stream);
    stream.packetCount.store(0, std::memory_order_relaxed);
}

int32_t TimestampSpan(const RTPStreamData &newer, const RTPStreamData &older) {
    return static_cast<int32_t>(newer.rtpHeader->timestamp - older.rtpHeader->timestamp);
}

} // namespace rtsptap
