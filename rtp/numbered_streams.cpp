#include "rtp/numbered_streams.h"

#include "platform/printers.h"
#include "platform/system.h"
#include "rtp/delivery.h"
#include "rtp/loop/passes.h"
#include "rtp/media_session.h"
#include "rtp/packet_memory.h"
#include "rtp/receive_turn.h"
#include "rtp/serving.h"
#include "rtp/stream.h"
#include "rtsptap_extended.h"

#include <algorithm>
#include <span>

namespace rtsptap {

int32_t TakeDeliverable(RTSPStreamInfo &stream, std::span<RTPStreamData *> packets, bool isOver) {
    if (stream.packetListHead.load(std::memory_order_acquire) == nullptr) return 0;
    const ScopedShortLock lock(stream.packetListLock);
    int32_t count = 0;
    for (RTPStreamData *&packet : packets) {
        if (!stream.held.MakeRoom()) return count > 0 ? count : RTSP_NO_MEMORY;
        RTPStreamData *const taken = TakeDeliverableHead(stream, isOver);
        if (taken == nullptr) break;
        stream.held.Add(*taken);
        packet = taken;
        ++count;
    }
    return count;
}

namespace {

// ---- taking ----

// Sleeps until a datagram or frame has been handled, or for a slice: an interruption wakes nobody, as it may come
// out of a signal handler.
void SleepASlice(RTSPStreamInfo &stream, ReceiveTurn &turn, uint32_t handledBefore, uint64_t deadlineMs) {
    const timespec until = MonotonicTime(std::min(deadlineMs, MonotonicMs() + kTurnSliceMs));
    const ScopedLock lock(stream.signalLock);
    stream.handledBeforeWait = handledBefore;
    stream.waitingReaders.fetch_add(1, std::memory_order_seq_cst);
    turn.sleepers.fetch_add(1, std::memory_order_relaxed);
    if (stream.handled.load(std::memory_order_seq_cst) == handledBefore && !IsCalledOff(stream))
        pthread_cond_clockwait(&stream.dataCondition, &stream.signalLock, CLOCK_MONOTONIC, &until);
    turn.sleepers.fetch_sub(1, std::memory_order_relaxed);
    stream.waitingReaders.fetch_sub(1, std::memory_order_seq_cst);
}

constexpr int kMostBusyLooks = 20; // at a turn that somebody else has, when the end is known

// What has been looked at before "nothing" may be said.
struct Look {
    bool complete = false; // the socket, too, or it was not to be had
    int busy = 0;
};

// Serves in the reader's turn, or sleeps while somebody else does.
void WaitForMore(RTSPStreamInfo &stream, uint32_t handledBefore, uint64_t deadlineMs, Look &look) {
    const PrintsFor client(HandleOf(*stream.session));
    if (IsThreadless(*stream.session)) {
        look.complete = true;
        return ServeForTaker(stream, deadlineMs);
    }
    const bool overTcp = stream.receiving;
    ReceiveTurn &turn = overTcp ? stream.session->connection.turn : stream.turn;
    const Service &service = overTcp ? kInterleavedService : kRtpService;
    look.complete = true;
    if (ServeAsTaker(service, stream, handledBefore, deadlineMs)) return;
    const uint64_t now = MonotonicMs();
    if (!IsCalledOff(stream) && now < deadlineMs) return SleepASlice(stream, turn, handledBefore, deadlineMs);
    // Who has the turn may be about to queue what came before the end.
    look.complete = !IsTaken(turn) || EndOf(stream) == 0 || ++look.busy > kMostBusyLooks;
    if (!look.complete) MSecDelay(1);
}

// Until when a missing packet is waited for; where none is, for ever.
uint64_t WaitEndsMs(const RTSPStreamInfo &stream) {
    const uint64_t end = stream.order.waitEndsMs.load(std::memory_order_relaxed);
    return end != 0 && stream.packetListHead != nullptr ? end : UINT64_MAX;
}

// The clock's milliseconds are cut off: no wait is too short.
uint64_t DeadlineIn(int32_t ms) { return MonotonicMs() + static_cast<uint64_t>(ms) + (ms > 0 ? 1 : 0); }

int32_t TakeWithin(RTSPStreamInfo &stream, std::span<RTPStreamData *> packets, int32_t timeoutMs) {
    uint64_t deadlineMs = 0; // to be set when there is nothing at once
    for (Look look;;) {
        const uint32_t interrupts = stream.session->interrupts.load(std::memory_order_acquire);
        if (stream.interruptsTold.exchange(interrupts, std::memory_order_relaxed) != interrupts)
            return RTSPTAP_INTERRUPTED;
        const int32_t end = EndOf(stream); // before the look: what comes later is not missed
        const uint32_t handledBefore = stream.handled.load(std::memory_order_acquire);
        if (const int32_t taken = TakeDeliverable(stream, packets, end != 0); taken != 0) return taken;
        if (deadlineMs == 0) deadlineMs = DeadlineIn(timeoutMs);
        if (look.complete && end != 0) return end;
        if (look.complete && MonotonicMs() >= deadlineMs) return 0;
        WaitForMore(stream, handledBefore, std::min(deadlineMs, WaitEndsMs(stream)), look);
    }
}

// ---- giving back ----

} // namespace

std::size_t GiveBack(RTSPStreamInfo &stream, std::span<RTPStreamData *const> packets) {
    RTPStreamData *first = nullptr;
    RTPStreamData *last = nullptr;
    std::size_t count = 0;
    {
        const ScopedShortLock lock(stream.packetListLock);
        const uint8_t *freeUpTo = nullptr;
        for (RTPStreamData *const packet : packets) {
            if (!stream.held.Remove(packet, freeUpTo)) continue;
            (first != nullptr ? last->next : first) = packet;
            last = packet;
            ++count;
        }
        if (freeUpTo != nullptr)
            stream.ring.readIndex.store(freeUpTo - stream.ring.storage, std::memory_order_release);
    }
    if (first != nullptr && IsThreadless(*stream.session)) NoteRoom(stream);
    if (first != nullptr) ReturnPacketRecords(stream, first, last); // at last: it may be what kept the ring
    return count;
}

bool WaitForOrder(RTSPStreamInfo &stream, uint64_t deadlineMs) {
    const uint64_t end = WaitEndsMs(stream);
    const uint64_t now = MonotonicMs();
    if (end == UINT64_MAX || now >= deadlineMs || IsCalledOff(stream)) return false;
    Look look;
    if (now < end)
        WaitForMore(stream, stream.handled.load(std::memory_order_acquire), std::min(deadlineMs, end), look);
    return true;
}

bool GiveBackWherever(const MediaSession &session, RTPStreamData *packet) {
    for (const auto *list : {&session.streamList, &session.retiredStreams})
        for (RTSPStreamInfo *stream = *list; stream != nullptr; stream = stream->next)
            if (GiveBack(*stream, {&packet, 1}) == 1) return true;
    return false;
}

} // namespace rtsptap

using namespace rtsptap;

int32_t RTSPTapTakePackets(intptr_t clientHandle, int32_t stream, RTPStreamData **packets, int32_t room,
                           int32_t timeoutMs) {
    const CallTrace trace(__func__);
    const MediaSession *const session = LiveSession(clientHandle);
    if (session == nullptr || stream < 1 || packets == nullptr || room < 1 || timeoutMs < 0)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid Input Arguments\n");
    RTSPStreamInfo *const found = FindStreamByNumber(*session, stream);
    if (found != nullptr) {
        const int32_t taken = TakeWithin(*found, {packets, static_cast<std::size_t>(room)}, timeoutMs);
        NoteTaken(*found, taken, room);
        return taken;
    }
    if (stream <= session->tornDownStreams) return RTSPTAP_TORN_DOWN;
    return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :No such stream\n");
}

// Packets are those of the stream that has the number, or of ended sessions' streams that had it.
int32_t RTSPTapFreePackets(intptr_t clientHandle, int32_t stream, RTPStreamData *const *packets, int32_t count) {
    const CallTrace trace(__func__);
    const MediaSession *const session = LiveSession(clientHandle);
    if (session == nullptr || stream < 1 || count < 0 || (packets == nullptr && count > 0))
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid Input Arguments\n");
    const std::span<RTPStreamData *const> all(packets, static_cast<std::size_t>(count));
    std::size_t left = all.size();
    if (RTSPStreamInfo *const found = FindStreamByNumber(*session, stream)) left -= GiveBack(*found, all);
    RTSPStreamInfo *retired = left > 0 ? session->retiredStreams.load() : nullptr;
    for (; retired != nullptr && left > 0; retired = retired->next)
        if (retired->number == stream) left -= GiveBack(*retired, all);
    if (left == 0) return RTSP_SUCCESS;
    return trace.Fail(RTSPTAP_NOT_TAKEN, "EXIT : %s :A packet was not taken from there\n");
}

int32_t RTSPTapInterrupt(intptr_t clientHandle) {
    MediaSession *const session = LiveSession(clientHandle);
    if (session == nullptr) return RTSP_INVALID_ARGUMENT;
    session->interrupts.fetch_add(1, std::memory_order_acq_rel);
    return RTSP_SUCCESS;
}
