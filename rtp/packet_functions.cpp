// The application's side of the packet queues, as exported: take, look, give back, figures, settings.
// Application threads, one reader per stream; receive threads read the settings.
#include "platform/printers.h"
#include "platform/system.h"
#include "rtp/codec_table.h"
#include "rtp/delivery.h"
#include "rtp/interleaved/interleaved_service.h"
#include "rtp/loop/passes.h"
#include "rtp/media_session.h"
#include "rtp/numbered_streams.h"
#include "rtp/packet_memory.h"
#include "rtp/packet_queue.h"
#include "rtp/serving.h"
#include "rtp/stream.h"

#include <cstdint>

namespace rtsptap {

namespace {

// A further codec is one for the clients that have asked for such.
[[gnu::noinline]] bool IsFurtherCodecOf(const MediaSession *session, int32_t codecType) {
    return session != nullptr && FindCodec(codecType) != nullptr && session->dialect.IsOn(Rule::kFurtherCodec);
}

bool IsCodecOf(const MediaSession *session, int32_t codecType) {
    return IsCodecType(codecType) || IsFurtherCodecOf(session, codecType);
}

// Kept: a bad codec type gets the handle's message.
[[gnu::always_inline]] inline MediaSession *CheckPacketCall(const CallTrace &trace, intptr_t clientHandle,
                                                            int32_t codecType, bool packetGiven = true) {
    MediaSession *const none = nullptr;
    MediaSession *const session = LiveSession(clientHandle);
    if (clientHandle == 0 || !IsCodecOf(session, codecType) || !packetGiven)
        return trace.Fail(none, "EXIT : %s :Invalid Client Handle\n");
    if (session == nullptr) return trace.Fail(none, "EXIT : %s : Argument error. Invalid handle in stack.\n");
    return session;
}

// Sleeps until any datagram or frame has been handled, accepted or not, or reception ends. Both are looked at once
// more under signalLock, where no signal can slip by.
void SleepUntilSignalled(RTSPStreamInfo &stream, uint32_t endsBefore, uint64_t deadlineMs, uint64_t waitMs) {
    ReceiveTurn &turn = stream.receiving ? stream.session->connection.turn : stream.turn;
    const ScopedLock lock(stream.signalLock);
    stream.handledBeforeWait = stream.handled.load(std::memory_order_acquire);
    stream.waitingReaders.fetch_add(1, std::memory_order_seq_cst);
    turn.sleepers.fetch_add(1, std::memory_order_relaxed);
    const bool isOver = stream.receptionsEnded.load(std::memory_order_seq_cst) != endsBefore;
    if (stream.packetListHead.load(std::memory_order_seq_cst) == nullptr && !isOver &&
        !SessionIsOver(*stream.session))
        WaitForConditionUntil(&stream.dataCondition, &stream.signalLock, deadlineMs, waitMs);
    turn.sleepers.fetch_sub(1, std::memory_order_relaxed);
    stream.waitingReaders.fetch_sub(1, std::memory_order_seq_cst);
}

// Waits once, without a loop: the caller then looks again.
void WaitForPacket(RTSPStreamInfo &stream) {
    if (stream.packetListHead.load(std::memory_order_acquire) != nullptr) return;
    const PrintsFor client(HandleOf(*stream.session));
    const uint32_t endsBefore = stream.receptionsEnded.load(std::memory_order_seq_cst);
    const uint64_t waitMs = static_cast<uint64_t>(stream.session->packetLimitMs.load(std::memory_order_relaxed));
    const uint64_t deadlineMs = MonotonicMs() + waitMs;
    if (IsThreadless(*stream.session)) return ServeForReader(stream, deadlineMs);
    const Service &service = stream.receiving ? kInterleavedService : kRtpService;
    const TurnEnd end = ServeAsReader(service, stream, deadlineMs);
    if (end == TurnEnd::kNotDone) SleepUntilSignalled(stream, endsBefore, deadlineMs, waitMs);
}

RTPStreamData *ShowHead(RTSPStreamInfo &stream) {
    const ScopedShortLock lock(stream.packetListLock);
    RTPStreamData *const head = DeliverableHead(stream);
    if (head != nullptr) stream.peekedPacket = head;
    return head;
}

[[gnu::always_inline]] inline RTPStreamData *TakeNext(RTSPStreamInfo &stream) {
    const ScopedShortLock lock(stream.packetListLock);
    return TakeDeliverableHead(stream);
}

// A missing packet holds back what there is. Out of the way of clients that do not wait for such.
template <RTPStreamData *(*HandOut)(RTSPStreamInfo &stream)>
[[gnu::noinline]] RTPStreamData *HandOutInOrder(RTSPStreamInfo &stream) {
    const auto limitMs = static_cast<uint64_t>(stream.session->packetLimitMs.load(std::memory_order_relaxed));
    const uint64_t deadlineMs = MonotonicMs() + limitMs;
    RTPStreamData *packet = nullptr;
    while (packet == nullptr && WaitForOrder(stream, deadlineMs)) packet = HandOut(stream);
    return packet;
}

template <RTPStreamData *(*HandOut)(RTSPStreamInfo &stream)>
int32_t HandOutPacket(const CallTrace &trace, intptr_t clientHandle, RTPStreamData **streamData,
                      int32_t codecType) {
    DebugPrint(kDebugEntry, "Input: clientHandle      : %d\n", PrintableHandle(clientHandle));
    const MediaSession *const session = CheckPacketCall(trace, clientHandle, codecType);
    if (session == nullptr) return RTSP_INVALID_ARGUMENT;
    if (streamData == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s : NULL RTPStreamData \n");
    RTSPStreamInfo *const stream = FindStreamByCodec(*session, codecType);
    if (stream == nullptr) return RTSP_SUCCESS;
    WaitForPacket(*stream);
    RTPStreamData *packet = HandOut(*stream);
    if (packet == nullptr) packet = HandOutInOrder<HandOut>(*stream);
    if (IsThreadless(*session)) NoteTaken(*stream, packet != nullptr ? 1 : 0, 1);
    if (packet == nullptr) return RTSP_FAILURE;
    *streamData = packet;
    return RTSP_SUCCESS;
}

void GiveBack(RTSPStreamInfo &stream, RTPStreamData *packet) {
    stream.ring.readIndex.store(ClaimOf(*packet).end - stream.ring.storage, std::memory_order_release);
    if (IsThreadless(*stream.session)) NoteRoom(stream);
    ReturnPacketRecord(stream, packet); // at last: it may be what kept the ring
}

} // namespace

// ---- figures ----

namespace {

constexpr uint32_t kVideoClockRate = 90000;

MediaSession *CheckFigureCall(const CallTrace &trace, intptr_t clientHandle, int32_t codecType) {
    MediaSession *const none = nullptr;
    DebugPrint(kDebugEntry, "Input: clientHandle      : %d\n", PrintableHandle(clientHandle));
    if (clientHandle == 0) return trace.Fail(none, "EXIT : %s :Invalid Client Handle \n");
    MediaSession *const session = LiveSession(clientHandle);
    if (!IsCodecOf(session, codecType)) return trace.Fail(none, "EXIT : %s :Invalid Codec Type \n");
    if (session == nullptr) return trace.Fail(none, "EXIT : %s : Argument error. Invalid handle in stack.\n");
    return session;
}

// 32-bit arithmetic throughout; divided as signed 64-bit numbers, where no pair of values traps.
uint32_t InVideoClock(uint32_t audioTimestamp, int32_t audioClockRate) {
    if (audioClockRate == 0) return 0;
    const auto product = static_cast<int32_t>(audioTimestamp * kVideoClockRate);
    return static_cast<uint32_t>(int64_t{product} / audioClockRate);
}

uint32_t ReportedTimestamp(const RTSPStreamInfo &stream) {
    return stream.srRtpTimestamp.load(std::memory_order_relaxed);
}

} // namespace

} // namespace rtsptap

using namespace rtsptap;

int32_t RTPClientPeekRTPStreamData(intptr_t clientHandle, RTPStreamData **streamData, int32_t codecType) {
    return HandOutPacket<ShowHead>(CallTrace(__func__), clientHandle, streamData, codecType);
}

int32_t RTPClientGetRTPStreamData(intptr_t clientHandle, RTPStreamData **streamData, int32_t codecType) {
    return HandOutPacket<TakeNext>(CallTrace(__func__), clientHandle, streamData, codecType);
}

int32_t RTPClientFreeRTPStreamData(intptr_t clientHandle, RTPStreamData *streamData, int32_t codecType) {
    const CallTrace trace(__func__);
    DebugPrint(kDebugEntry, "Input: RTPStreamData     : %d\n", PrintableHandle(streamData));
    const MediaSession *const session = CheckPacketCall(trace, clientHandle, codecType, streamData != nullptr);
    if (session == nullptr) return RTSP_INVALID_ARGUMENT;
    // Whatever codec it is freed with and however long its session is over. The streams of another client, which
    // may be gone, are not looked at.
    RTSPStreamInfo *const owner = FindStreamByRing(*session, ClaimOf(*streamData).ring);
    if (owner != nullptr)
        GiveBack(*owner, streamData);
    else if (ClaimOf(*streamData).ring == nullptr) // taken by the number of its stream
        return GiveBackWherever(*session, streamData) ? RTSP_SUCCESS : RTSP_INVALID_ARGUMENT;
    else
        FreePacketRecord(streamData);
    return RTSP_SUCCESS;
}

int32_t RTPClientGetTSOffset(intptr_t clientHandle, int32_t codecType, uint32_t *tsOffset, int32_t audioClockRate) {
    const CallTrace trace(__func__);
    const MediaSession *const session = CheckPacketCall(trace, clientHandle, codecType);
    if (session == nullptr) return RTSP_INVALID_ARGUMENT;
    const RTSPStreamInfo *const audio = FindLastStreamByCodec(*session, RTP_CODEC_MPEG4_GENERIC);
    const RTSPStreamInfo *const video = FindLastStreamByCodec(*session, RTP_CODEC_H264);
    if (audio == nullptr && video == nullptr) return RTSP_FAILURE;
    if (codecType == RTP_CODEC_H264 && audio == nullptr) return RTSP_FAILURE;
    if (codecType != RTP_CODEC_MPEG4_GENERIC) return RTSP_SUCCESS;
    if (audio == nullptr || video == nullptr) return RTSP_FAILURE;
    if (tsOffset == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    *tsOffset = InVideoClock(ReportedTimestamp(*audio), audioClockRate) - ReportedTimestamp(*video);
    return RTSP_SUCCESS;
}

int32_t RTPClientGetNbOfPktInBuffer(intptr_t clientHandle, int32_t codecType) {
    const CallTrace trace(__func__);
    const MediaSession *const session = CheckFigureCall(trace, clientHandle, codecType);
    if (session == nullptr) return RTSP_INVALID_ARGUMENT;
    const RTSPStreamInfo *const stream = FindStreamByCodec(*session, codecType);
    return stream != nullptr ? stream->packetCount.load(std::memory_order_relaxed) : RTSP_FAILURE;
}

// Kept: every failure is 0 here, like an empty queue.
int32_t RTPClientGetStreamPktCount(intptr_t clientHandle, int32_t codecType) {
    const CallTrace trace(__func__);
    const MediaSession *const session = CheckFigureCall(trace, clientHandle, codecType);
    if (session == nullptr) return 0;
    RTSPStreamInfo *const stream = FindStreamByCodec(*session, codecType);
    if (stream == nullptr) return 0;
    const ScopedShortLock lock(stream->packetListLock);
    const RTPStreamData *const head = stream->packetListHead.load(std::memory_order_relaxed);
    return head != nullptr ? static_cast<int32_t>(head->packetIndex) : 0;
}

// ---- settings ----

int32_t RTPClientConfigLatency(intptr_t clientHandle, int32_t tLInMS, int32_t uFInMS, int32_t oFInMS) {
    const CallTrace trace(__func__);
    DebugPrint(kDebugEntry, "Input: : clientHandle %d\n", PrintableHandle(clientHandle));
    DebugPrint(kDebugEntry, "Input: : tLInMS %d\n", tLInMS);
    DebugPrint(kDebugEntry, "Input: : uFInMS %d\n", uFInMS);
    DebugPrint(kDebugEntry, "Input: : oFInMS %d\n", oFInMS);
    const bool negative = tLInMS < 0 || uFInMS < 0 || oFInMS < 0;
    if (negative || uFInMS > oFInMS || uFInMS > tLInMS || oFInMS < tLInMS)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid Input arguments\n");
    MediaSession *const session = LiveSession(clientHandle);
    if (session == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid client handle\n");

    SetTargetLatency(*session, tLInMS);
    session->underflowLimit = uFInMS;
    session->overflowLimit = oFInMS;
    RtpRtspInfoPrint("Target Latency : %d \n", tLInMS);
    RtpRtspInfoPrint("Underflow Condition : %d \n", uFInMS);
    RtpRtspInfoPrint("Overflow  Condition : %d \n", oFInMS);
    return RTSP_SUCCESS;
}

int32_t RTPClientSetAudioVideoBufferSize(intptr_t clientHandle, int32_t videoBufferSize, int32_t audioBufferSize) {
    const CallTrace trace(__func__);
    DebugPrint(kDebugEntry, "Input:  videoBufferSize    : %d\n", videoBufferSize);
    DebugPrint(kDebugEntry, "Input:  audioBufferSize    : %d\n", audioBufferSize);
    if (clientHandle == 0 || videoBufferSize < 0 || audioBufferSize < 0)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid Client Handle\n");
    MediaSession *const session = LiveSession(clientHandle);
    if (session == nullptr)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s : Argument error. Invalid handle in stack.\n");

    session->videoBufferSize = videoBufferSize;
    session->audioBufferSize = audioBufferSize;
    RtpRtspInfoPrint("Setting Video Buffer Size : %d and Audio Buffer Size : %d \n", videoBufferSize,
                     audioBufferSize);
    return RTSP_SUCCESS;
}
