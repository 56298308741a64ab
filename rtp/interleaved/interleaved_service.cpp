
#include "rtp/interleaved/interleaved_service.h"

#include "platform/printers.h"
#include "platform/system.h"
#include "rtp/interleaved/connection.h"
#include "rtp/interleaved/splitter.h"
#include "rtp/packet_queue.h"
#include "rtp/service_thread.h"
#include "rtp/stream.h"
#include "rtp/udp_reception.h"
#include "rtsp/client/client.h"

#include <algorithm>
#include <poll.h>

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

// A successor goes on where the thread stops: readers then wait on.
void CloseRings(const RTSPClient &client, bool handOver) {
    RTSPStreamInfo *stream = client.streamList.load(std::memory_order_acquire);
    for (; stream != nullptr; stream = stream->next.load(std::memory_order_acquire)) {
        if (!stream->receiving.exchange(false)) continue;
        if (!handOver) EndReaderWaits(*stream);
    }
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
    const int graceLeft = ReplyGraceLeft(*reader);
    const Fill fill = FillReader(*reader, graceLeft < 0 ? timeoutMs : std::min(timeoutMs, graceLeft));
    if (fill == Fill::kClosed) DebugPrint(kDebugEntry, "Stopping Thread \n");
    const Unit unit = TakeBufferedUnits(client, *reader, ReplyEnd::kFirstDollar, fill == Fill::kClosed);
    client.turn.ended = fill == Fill::kClosed || unit == Unit::kNoMemory;
    return !client.turn.ended;
}

// The thread's turn, when no reader has it, then its wait for more. False ends the thread.
bool ServeAsThread(RTSPClient &client, const StreamThread &thread) {
    if (RestForReaders(thread, client.turn)) return true;
    {
        const ScopedTurn turn(client.turn, ScopedTurn::kTry);
        if (!turn.IsMine()) return true;
        if (!ServeOnce(client, 0)) return false;
    }
    WaitForData(thread, client.turn, client.rtspSocket);
    return true;
}

void OpenService(StreamThread &thread, RTSPClient &client) {
    const ScopedTurn turn(client.turn, ScopedTurn::kWait);
    thread.stream->baseSeqNum = -1;
    PlanRings(client);
    OpenTurn(client.turn, thread);
}

enum class WaitEnd { kReadable, kNothing, kDeadline, kFailed };

// Waits for the reply as every exchange does, or for the rest of one. A signal fails the wait, but not that for a
// rest.
WaitEnd WaitForReply(const InterleavedReader &reader, uint64_t deadlineMs) {
    const uint64_t now = MonotonicMs();
    if (now >= deadlineMs) return WaitEnd::kDeadline;
    const int grace = ReplyGraceLeft(reader);
    pollfd arrival = {reader.socket, POLLIN, 0};
    const int ready = poll(&arrival, 1, grace >= 0 ? grace : static_cast<int>(deadlineMs - now));
    if (ready < 0 && grace < 0) return WaitEnd::kFailed;
    return ready > 0 ? WaitEnd::kReadable : WaitEnd::kNothing;
}

void CloseService(const StreamThread &thread, RTSPClient &client) {
    const ScopedTurn turn(client.turn, ScopedTurn::kWait);
    CloseTurn(client.turn);
    CloseRings(client, thread.yield);
}

} // namespace

void ServeInterleavedConnection(StreamThread &thread) {
    const CallTrace trace("RTPDataReceiveThread");
    RTSPClient &client = *thread.stream->client;
    OpenService(thread, client);
    while (!MustEnd(thread)) {
        if (AnyStreamPlays(client) || client.awaitingReply) {
            if (!ServeAsThread(client, thread)) break;
        } else if (client.state == CLIENT_INIT_STATE) {
            break;
        } else {
            MSecDelay(kPausedSleepMs);
        }
    }
    CloseService(thread, client);
}

TurnEnd ServeAsReader(RTSPStreamInfo &stream, uint64_t deadlineMs) {
    RTSPClient &client = *stream.client;
    const ReaderTurn turn(client.turn);
    if (!turn.IsMine() || !stream.receiving) return TurnEnd::kNotDone;
    // Looked at again in the turn: the thread may have queued what this reader would now wait for.
    if (stream.packetListHead.load(std::memory_order_acquire) != nullptr) return TurnEnd::kHandled;
    if (client.turn.ended) return TurnEnd::kNotDone; // another one has seen it: the thread's end ends the wait
    const uint32_t before = stream.handled;
    const StreamThread &thread = *client.turn.thread;
    while (!client.turn.ended && stream.handled == before && stream.streamState == kStreamPlaying &&
           !MustEnd(thread) && MonotonicMs() < deadlineMs)
        ServeOnce(client, kTurnSliceMs);
    if (stream.handled != before) return TurnEnd::kHandled;
    return IsOver(client.turn) ? TurnEnd::kOver : TurnEnd::kNotDone;
}

RecvBufferPtr ReceiveReplyAmongFrames(RTSPClient &client, int32_t &failure) {
    const CallTrace trace("ClientReadMessage");
    failure = RTSP_NO_RESPONSE;
    InterleavedReader *const reader = OpenReader(client);
    if (reader == nullptr) return nullptr;
    PlanRings(client);
    const uint64_t deadline = MonotonicMs() + kReplyTimeoutMs;
    for (bool closed = false;;) {
        const Unit unit = TakeBufferedUnits(client, *reader, ReplyEnd::kFirstFrame, closed);
        if (client.recvData != nullptr || unit == Unit::kNoMemory || closed) break;
        const WaitEnd wait = WaitForReply(*reader, deadline);
        if (wait == WaitEnd::kFailed) {
            trace.Fail(failure, "\tEXIT : %s :Socket select call failed\n");
            break;
        }
        if (wait == WaitEnd::kDeadline) {
            failure = trace.Fail(RTSP_RESPONSE_TIMEOUT, "\tEXIT : %s :No data received and timeout the session\n");
            break;
        }
        closed = wait == WaitEnd::kReadable && FillReader(*reader, 0) == Fill::kClosed;
    }
    return RecvBufferPtr(client.recvData.exchange(nullptr));
}

} // namespace rtsptap
