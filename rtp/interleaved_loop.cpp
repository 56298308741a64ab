#include "rtp/interleaved_loop.h"

#include "platform/call_trace.h"
#include "platform/clock.h"
#include "rtp/interleaved_reader.h"
#include "rtp/interleaved_units.h"
#include "rtp/receive_thread.h"
#include "rtp/stream_record.h"
#include "rtp/stream_thread.h"
#include "rtsp/client/client_record.h"

#include <algorithm>

namespace rtsptap {
namespace {

// A description may have thousands of streams: a ring is planned for every one that is to take frames, and made
// when the first frame comes. A stream described later takes none.
void PlanRings(const RTSPClient &client) {
    RTSPStreamInfo *stream = client.streamList.load(std::memory_order_acquire);
    for (; stream != nullptr; stream = stream->next.load(std::memory_order_acquire)) {
        if (!stream->takesFrames) continue;
        PlanRing(*stream);
        stream->receiving = true;
        stream->localSsrc = ChooseSsrc(*stream);
    }
}

void CloseRings(const RTSPClient &client) {
    RTSPStreamInfo *stream = client.streamList.load(std::memory_order_acquire);
    for (; stream != nullptr; stream = stream->next.load(std::memory_order_acquire)) stream->receiving = false;
}

bool AnyStreamPlays(const RTSPClient &client) {
    const RTSPStreamInfo *stream = client.streamList.load(std::memory_order_acquire);
    while (stream != nullptr && stream->streamState != kStreamPlaying)
        stream = stream->next.load(std::memory_order_acquire);
    return stream != nullptr;
}

// In a turn: waits up to `timeoutMs` for more and handles what is there. False, and no more turns, when the
// connection is closed or memory short.
bool ServeOnce(RTSPClient &client, int timeoutMs) {
    InterleavedReader *const reader = OpenReader(client);
    client.turn.ended = client.turn.ended || reader == nullptr || reader->socket < 0;
    if (client.turn.ended) return false;
    ChangeWatch(client.turn, reader->socket);
    const int graceLeft = ReplyGraceLeft(*reader);
    const Fill fill = FillReader(*reader, graceLeft < 0 ? timeoutMs : std::min(timeoutMs, graceLeft));
    if (fill == Fill::kClosed) DebugPrint(kDebugEntry, "Stopping Thread \n");
    const Unit unit = TakeBufferedUnits(client, *reader, ReplyEnd::kFirstDollar, fill == Fill::kClosed);
    client.turn.ended = fill == Fill::kClosed || unit == Unit::kNoMemory;
    return !client.turn.ended;
}

// The thread's turn, when no reader has it, then its wait for more. False ends the thread.
bool ServeAsThread(RTSPClient &client, const StreamThread &thread) {
    {
        const ScopedTurn turn(client.turn, ScopedTurn::kTry);
        if (turn.IsMine() && !ServeOnce(client, 0)) return false;
        if (turn.IsMine()) WatchSocket(client.turn, true);
    }
    WaitAtWatch(thread, client.turn.watch);
    return true;
}

// False when the thread cannot serve the connection.
bool OpenService(StreamThread &thread, RTSPClient &client) {
    const ScopedTurn turn(client.turn, ScopedTurn::kWait);
    thread.stream->baseSeqNum = -1;
    PlanRings(client);
    return OpenWatch(client.turn, thread, client.rtspSocket);
}

void CloseService(RTSPClient &client) {
    const ScopedTurn turn(client.turn, ScopedTurn::kWait);
    CloseWatch(client.turn);
    CloseRings(client);
}

} // namespace

void ServeInterleavedConnection(StreamThread &thread) {
    const CallTrace trace("RTPDataReceiveThread");
    RTSPClient &client = *thread.stream->client;
    if (!OpenService(thread, client)) {
        RtpRtspErrorPrint("EXIT : %s : %d Memory Allocation Failed\n", trace.Function(), __LINE__);
        return;
    }
    while (!MustEnd(thread)) {
        if (AnyStreamPlays(client) || client.awaitingReply) {
            if (!ServeAsThread(client, thread)) break;
        } else if (client.state == CLIENT_INIT_STATE) {
            break;
        } else {
            MSecDelay(kPausedSleepMs);
        }
    }
    CloseService(client);
}

bool ServeAsReader(RTSPStreamInfo &stream, uint64_t deadlineMs) {
    RTSPClient &client = *stream.client;
    const ScopedTurn turn(client.turn, ScopedTurn::kTry);
    if (!turn.IsMine() || client.turn.thread == nullptr || client.turn.ended || !stream.receiving) return false;
    WatchSocket(client.turn, false);
    const uint32_t before = stream.handled;
    const StreamThread &thread = *client.turn.thread;
    while (stream.handled == before && stream.streamState == kStreamPlaying && !MustEnd(thread) &&
           GetTimeValue() < deadlineMs && ServeOnce(client, kTurnSliceMs)) {
    }
    if (client.turn.ended)
        WakeStreamThread(thread);
    else
        WatchSocket(client.turn, true);
    return stream.handled != before;
}

RecvBufferPtr ReceiveReplyAmongFrames(RTSPClient &client, int32_t &failure) {
    const CallTrace trace("ClientReadMessage");
    failure = RTSP_NO_RESPONSE;
    InterleavedReader *const reader = OpenReader(client);
    if (reader == nullptr) return nullptr;
    PlanRings(client);
    const uint64_t deadline = MonotonicMs() + kReplyTimeoutMs;
    bool closed = false;
    while (client.recvData == nullptr) {
        if (TakeBufferedUnits(client, *reader, ReplyEnd::kBlankLine, closed) == Unit::kNoMemory || closed) break;
        if (client.recvData != nullptr) break;
        const uint64_t now = MonotonicMs();
        if (now >= deadline) {
            failure = trace.Fail(RTSP_RESPONSE_TIMEOUT, "\tEXIT : %s :No data received and timeout the session\n");
            break;
        }
        const int grace = ReplyGraceLeft(*reader);
        closed = FillReader(*reader, grace >= 0 ? grace : static_cast<int>(deadline - now)) == Fill::kClosed;
    }
    return RecvBufferPtr(client.recvData.exchange(nullptr));
}

} // namespace rtsptap
