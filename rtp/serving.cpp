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

Readiness WaitForService(const StreamThread &thread, ReceiveTurn *turn) {
    const Service &service = *thread.service;
    RTSPStreamInfo &stream = *thread.stream;
    return turn != nullptr ? WaitForData(thread, *turn, service.socket(stream), service.waitMs(stream))
                           : WaitForSocket(thread, service.socket(stream), service.waitMs(stream));
}

// Readers are told once of all that arrived together, outside of the turn: waking one costs several times what
// receiving does.
bool ServeInTurn(StreamThread &thread, ReceiveTurn &turn, const Readiness &readiness, Served &served) {
    if (RestForReaders(thread, turn)) return false;
    {
        const ScopedTurn mine(turn, ScopedTurn::kTry);
        if (!mine.IsMine()) return false;
        served = turn.ended ? Served::kEnded : thread.service->serve(thread, readiness);
    }
    thread.service->announce(*thread.stream);
    return true;
}

// One pass of an active service: what is there, then the wait for more. False ends the thread.
bool ServeOnce(StreamThread &thread, Readiness &readiness) {
    ReceiveTurn *const turn = thread.service->turn(*thread.stream);
    Served served = Served::kMaybeMore;
    if (turn == nullptr)
        served = thread.service->serve(thread, readiness);
    else if (!ServeInTurn(thread, *turn, readiness, served))
        return true;
    readiness = {};
    switch (served) {
    case Served::kEnded:
        return false;
    case Served::kNoRoom:
        MSecDelay(kNoRoomSleepMs);
        return true;
    case Served::kNothingLeft:
        readiness = WaitForService(thread, turn);
        return true;
    case Served::kMaybeMore:
        break;
    }
    return true;
}

bool SessionIsOver(const RTSPStreamInfo &stream) { return stream.session->state == CLIENT_INIT_STATE; }

} // namespace

void RunServing(StreamThread &thread) {
    const Service &service = *thread.service;
    const CallTrace trace(service.threadName);
    if (!service.open(thread)) return;
    Readiness readiness;
    while (!MustEnd(thread)) {
        if (service.isActive(*thread.stream)) {
            if (!ServeOnce(thread, readiness)) break;
        } else if (SessionIsOver(*thread.stream)) {
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
