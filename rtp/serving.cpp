#include "rtp/serving.h"

#include "platform/printers.h"
#include "platform/system.h"
#include "rtp/media_session.h"
#include "rtp/receive_turn.h"
#include "rtp/service_thread.h"
#include "rtp/stream.h"

namespace rtsptap {
namespace {

constexpr uint32_t kNoRoomSleepMs = 1; // no packet is lost: the kernel keeps what comes

// Readers are told once of all that arrived together, outside of the turn: waking one costs several times what
// receiving does.
Served ServeInTurn(StreamThread &thread, ReceiveTurn &turn) {
    const Service &service = *thread.service;
    RTSPStreamInfo &stream = *thread.stream;
    const uint32_t before = stream.handled;
    Served served = Served::kEnded;
    {
        const ScopedTurn mine(turn, ScopedTurn::kTry);
        if (!mine.IsMine()) return Served::kMaybeMore;
        if (!turn.ended) served = service.serve(thread, {});
    }
    if (service.announce != nullptr && stream.handled != before) service.announce(stream);
    return served;
}

// A pass of a service that readers have a part in: what is there, then the wait for more. False ends the thread.
bool ServeBesideReaders(StreamThread &thread) {
    const Service &service = *thread.service;
    RTSPStreamInfo &stream = *thread.stream;
    ReceiveTurn &turn = *service.turn(stream);
    if (RestForReaders(thread, turn)) return true;
    switch (ServeInTurn(thread, turn)) {
    case Served::kEnded:
        return false;
    case Served::kNoRoom:
        MSecDelay(kNoRoomSleepMs);
        break;
    case Served::kNothingLeft:
        WaitForData(thread, turn, service.socket(stream), service.waitMs(stream));
        break;
    case Served::kMaybeMore:
        break;
    }
    return true;
}

// A pass of one that is the thread's alone. What the wait found is handled whatever has become of the stream
// meanwhile.
bool ServeAlone(StreamThread &thread) {
    const Service &service = *thread.service;
    const Readiness readiness =
        WaitForSocket(thread, service.socket(*thread.stream), service.waitMs(*thread.stream));
    return !MustEnd(thread) && service.serve(thread, readiness) != Served::kEnded;
}

} // namespace

void RunServing(StreamThread &thread) {
    const Service &service = *thread.service;
    const CallTrace trace(service.threadName);
    if (!service.open(thread)) return;
    const auto serveOnce = service.turn != nullptr ? ServeBesideReaders : ServeAlone;
    while (!MustEnd(thread)) {
        if (service.isActive(*thread.stream)) {
            if (!serveOnce(thread)) break;
        } else if (thread.stream->session->state == CLIENT_INIT_STATE) {
            break;
        } else {
            MSecDelay(kPausedSleepMs); // a paused stream keeps its thread
        }
    }
    service.close(thread);
}

TurnEnd ServeAsReader(const Service &service, RTSPStreamInfo &stream, uint64_t deadlineMs) {
    ReceiveTurn &turn = *service.turn(stream);
    const ReaderTurn reader(turn);
    if (!reader.IsMine() || !service.admitsReaders(stream)) return TurnEnd::kNotDone;
    // Looked at again in the turn: the thread may have queued what this reader would now wait for.
    if (stream.packetListHead.load(std::memory_order_acquire) != nullptr) return TurnEnd::kHandled;
    if (turn.ended) return TurnEnd::kNotDone; // another one has seen it: the thread's end ends the wait
    const uint32_t before = stream.handled;
    Served served = Served::kNothingLeft;
    while (served != Served::kNoRoom && !turn.ended && stream.handled == before &&
           stream.streamState == kStreamPlaying && !MustEnd(*turn.thread) && MonotonicMs() < deadlineMs)
        served = service.serveWaiting(stream); // in slices, so that the reader hears of orders to the thread
    if (stream.handled != before) return TurnEnd::kHandled;
    return IsOver(turn) ? TurnEnd::kOver : TurnEnd::kNotDone;
}

} // namespace rtsptap
