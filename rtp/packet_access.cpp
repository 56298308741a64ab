#include "rtp/packet_access.h"

#include "platform/clock.h"
#include "platform/lock.h"
#include "platform/scope.h"
#include "rtp/interleaved_loop.h"
#include "rtp/packet_pool.h"
#include "rtp/packet_queue.h"
#include "rtp/receive_thread.h"
#include "rtp/stream_lifecycle.h"
#include "rtp/stream_record.h"
#include "rtsp/client/client_record.h"
#include "rtsp/client/registry.h"

namespace rtsptap {

namespace {

// A reader found its stream just before the session ended.
bool SessionIsOver(const RTSPClient &client) { return client.streamCount.load(std::memory_order_seq_cst) == 0; }

// Sleeps until any datagram or frame has been handled, accepted or not, or reception ends. Both are looked at once
// more under signalLock, where no signal can slip by.
void SleepUntilSignalled(RTSPStreamInfo &stream, uint32_t endsBefore, uint64_t deadlineMs) {
    ReceiveTurn &turn = stream.receiving ? stream.client->turn : stream.turn;
    const ScopedLock lock(stream.signalLock);
    stream.handledBeforeWait = stream.handled.load(std::memory_order_acquire);
    stream.waitingReaders.fetch_add(1, std::memory_order_seq_cst);
    turn.sleepers.fetch_add(1, std::memory_order_relaxed);
    const bool isOver = stream.receptionsEnded.load(std::memory_order_seq_cst) != endsBefore;
    if (stream.packetListHead.load(std::memory_order_seq_cst) == nullptr && !isOver &&
        !SessionIsOver(*stream.client))
        WaitForConditionUntil(&stream.dataCondition, &stream.signalLock, deadlineMs);
    turn.sleepers.fetch_sub(1, std::memory_order_relaxed);
    stream.waitingReaders.fetch_sub(1, std::memory_order_seq_cst);
}

// Waits once, without a loop: the caller then looks again.
void WaitForPacket(RTSPStreamInfo &stream) {
    if (stream.packetListHead.load(std::memory_order_acquire) != nullptr) return;
    const uint32_t endsBefore = stream.receptionsEnded.load(std::memory_order_seq_cst);
    const uint64_t deadlineMs = MonotonicMs() + kConditionWaitMs;
    TurnEnd end = ReceiveAsReader(stream, deadlineMs);
    if (end == TurnEnd::kNotDone) end = ServeAsReader(stream, deadlineMs);
    if (end == TurnEnd::kNotDone) SleepUntilSignalled(stream, endsBefore, deadlineMs);
}

// Kept: underflowLimit alone decides. A queue that has reached targetLatency is held back all the same.
bool IsHeldBack(RTSPStreamInfo &stream, const RTPStreamData &head) {
    const RTSPClient &client = *stream.client;
    if (client.targetLatency.load(std::memory_order_relaxed) == 0) return false;
    const int64_t underflow = client.underflowLimit.load(std::memory_order_relaxed) * kTicksPerMs;
    stream.buffering = TimestampSpan(*stream.packetListTail, head) > underflow ? 0 : 1;
    return stream.buffering == 1;
}

// The packet that may be handed out now, or null. The caller holds packetListLock.
RTPStreamData *DeliverableHead(RTSPStreamInfo &stream) {
    FreeDeferredPacket(stream);
    RTPStreamData *const head = stream.packetListHead.load(std::memory_order_relaxed);
    return head == nullptr || IsHeldBack(stream, *head) ? nullptr : head;
}

using HandOut = RTPStreamData *(*)(RTSPStreamInfo &stream);

RTPStreamData *ShowHead(RTSPStreamInfo &stream) {
    const ScopedShortLock lock(stream.packetListLock);
    RTPStreamData *const head = DeliverableHead(stream);
    if (head != nullptr) stream.peekedPacket = head;
    return head;
}

RTPStreamData *TakeDeliverableHead(RTSPStreamInfo &stream) {
    const ScopedShortLock lock(stream.packetListLock);
    RTPStreamData *const head = DeliverableHead(stream);
    if (head == nullptr) return nullptr;
    HoldRing(stream); // before it leaves the queue: at no moment does the packet's place in the ring look unused
    if (head == stream.peekedPacket) stream.peekedPacket = nullptr;
    return TakeHead(stream);
}

int32_t HandOutPacket(const CallTrace &trace, intptr_t clientHandle, RTPStreamData **streamData, int32_t codecType,
                      HandOut handOut) {
    DebugPrint(kDebugEntry, "Input: clientHandle      : %d\n", PrintableHandle(clientHandle));
    const RTSPClient *const client = CheckPacketCall(trace, clientHandle, codecType);
    if (client == nullptr) return RTSP_INVALID_ARGUMENT;
    if (streamData == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s : NULL RTPStreamData \n");
    RTSPStreamInfo *const stream = FindStreamByCodec(*client, codecType);
    if (stream == nullptr) return RTSP_SUCCESS;
    WaitForPacket(*stream);
    RTPStreamData *const packet = handOut(*stream);
    if (packet == nullptr) return RTSP_FAILURE;
    *streamData = packet;
    return RTSP_SUCCESS;
}

// The stream whose ring the packet lies in, whatever codec it is freed with and however long its session is over.
// Null for a packet of another client, which may be gone: its streams are not looked at.
RTSPStreamInfo *FindOwner(const RTSPClient &client, RTPStreamData &packet, int32_t codecType) {
    const ReceiveRing *const ring = ClaimOf(packet).ring;
    RTSPStreamInfo *const named = FindStreamByCodec(client, codecType);
    return named != nullptr && ring == &named->ring ? named : FindStreamByRing(client, ring);
}

void GiveBack(RTSPStreamInfo &stream, RTPStreamData *packet) {
    stream.ring.readIndex.store(ClaimOf(*packet).end - stream.ring.storage, std::memory_order_release);
    ReturnPacketRecord(stream.pool, packet);
    LetGoOfRing(stream); // at last: it may be what kept ring and pool
}

} // namespace

// Kept: a bad codec type gets the handle's message.
RTSPClient *CheckPacketCall(const CallTrace &trace, intptr_t clientHandle, int32_t codecType, bool packetGiven) {
    RTSPClient *const none = nullptr;
    if (clientHandle == 0) return trace.Fail(none, "EXIT : %s :Invalid Client Handle\n");
    if (!IsCodecType(codecType)) return trace.Fail(none, "EXIT : %s :Invalid Client Handle\n");
    if (!packetGiven) return trace.Fail(none, "EXIT : %s :Invalid Client Handle\n");
    RTSPClient *const client = LiveClient(clientHandle);
    if (client == nullptr) return trace.Fail(none, "EXIT : %s : Argument error. Invalid handle in stack.\n");
    return client;
}

} // namespace rtsptap

using namespace rtsptap;

int32_t RTPClientPeekRTPStreamData(intptr_t clientHandle, RTPStreamData **streamData, int32_t codecType) {
    return HandOutPacket(CallTrace(__func__), clientHandle, streamData, codecType, ShowHead);
}

int32_t RTPClientGetRTPStreamData(intptr_t clientHandle, RTPStreamData **streamData, int32_t codecType) {
    return HandOutPacket(CallTrace(__func__), clientHandle, streamData, codecType, TakeDeliverableHead);
}

int32_t RTPClientFreeRTPStreamData(intptr_t clientHandle, RTPStreamData *streamData, int32_t codecType) {
    const CallTrace trace(__func__);
    DebugPrint(kDebugEntry, "Input: RTPStreamData     : %d\n", PrintableHandle(streamData));
    const RTSPClient *const client = CheckPacketCall(trace, clientHandle, codecType, streamData != nullptr);
    if (client == nullptr) return RTSP_INVALID_ARGUMENT;
    RTSPStreamInfo *const owner = FindOwner(*client, *streamData, codecType);
    if (owner != nullptr)
        GiveBack(*owner, streamData);
    else
        FreePacketRecord(streamData);
    return RTSP_SUCCESS;
}
