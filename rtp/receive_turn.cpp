#include "rtp/receive_turn.h"

#include "platform/system.h"
#include "rtp/service_thread.h"

#include <utility>

namespace rtsptap {
namespace {

bool IsTaken(TurnState state) { return state == TurnState::kTaken || state == TurnState::kTakenThreadRests; }
bool IsRest(TurnState state) {
    return state == TurnState::kFreeThreadRests || state == TurnState::kTakenThreadRests;
}

// Takes a free turn. `found` is the state it was in; a rest of the thread goes on as `takenFromRest`.
bool TakeFree(ReceiveTurn &turn, TurnState &found, TurnState takenFromRest) {
    found = turn.state.load(std::memory_order_relaxed);
    while (!IsTaken(found)) {
        const TurnState taken = found == TurnState::kFreeThreadRests ? takenFromRest : TurnState::kTaken;
        if (turn.state.compare_exchange_weak(found, taken, std::memory_order_acq_rel)) return true;
    }
    return false;
}

// The thread's: its rest is over.
bool Take(ReceiveTurn &turn, ScopedTurn::Patience patience) {
    TurnState found;
    while (!TakeFree(turn, found, TurnState::kTaken)) {
        if (patience == ScopedTurn::kTry) return false;
        turn.state.wait(found, std::memory_order_relaxed);
    }
    return true;
}

// Gives back what is TurnState::kTaken, or kTakenThreadRests: then the thread rests on, and the watch has to know.
void Leave(ReceiveTurn &turn, uint64_t nowMs) {
    TurnState state = turn.state.load(std::memory_order_relaxed);
    if (state == TurnState::kTaken)
        turn.state.compare_exchange_strong(state, TurnState::kFree,
                                           std::memory_order_acq_rel); // if it rests by now
    const bool rests = state == TurnState::kTakenThreadRests;
    if (rests) turn.state.store(TurnState::kFreeThreadRests, std::memory_order_seq_cst);
    turn.state.notify_one();
    if (rests) TellReaderLeft(nowMs);
}

void BeginRest(ReceiveTurn &turn) {
    TurnState state = turn.state.load(std::memory_order_relaxed);
    const auto resting = [&state] {
        return IsTaken(state) ? TurnState::kTakenThreadRests : TurnState::kFreeThreadRests;
    };
    while (!turn.state.compare_exchange_weak(state, resting(), std::memory_order_seq_cst)) {
    }
    if (!IsTaken(state)) TellReaderLeft(MonotonicMs());
}

} // namespace

ScopedTurn::ScopedTurn(ReceiveTurn &turn, Patience patience) : turn_(turn), mine_(Take(turn, patience)) {}

ScopedTurn::~ScopedTurn() {
    if (mine_) Leave(turn_, MonotonicMs());
}

bool IsTaken(const ReceiveTurn &turn) { return IsTaken(turn.state.load(std::memory_order_acquire)); }

ReaderTurn::ReaderTurn(ReceiveTurn &turn) : turn_(turn) {
    TurnState found;
    if (!TakeFree(turn, found, TurnState::kTakenThreadRests)) return;
    // Where nothing more comes the thread is not to rest: it has to end.
    mine_ = turn.thread != nullptr && !turn.ended;
    if (!mine_) {
        Leave(turn, MonotonicMs());
        return;
    }
    turn.visits.store(turn.visits.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    // The thread would be woken by every datagram, too, and find it gone.
    if (found == TurnState::kFreeThreadWaits) WakeStreamThread(*turn.thread);
}

ReaderTurn::~ReaderTurn() {
    if (!mine_) return;
    const bool isOver = turn_.ended;
    const uint64_t now = MonotonicMs();
    turn_.lastLeftMs.store(now, std::memory_order_relaxed);
    Leave(turn_, now);
    if (isOver) EndRest(turn_); // the thread has to end: whoever connects anew must not count on it
}

void OpenTurn(ReceiveTurn &turn, StreamThread &thread) {
    turn.thread = &thread;
    turn.ended = false;
    thread.visitsSeen = turn.visits.load(std::memory_order_relaxed);
    if (thread.isWatched) BeginWatching(turn);
}

void CloseTurn(ReceiveTurn &turn) {
    EndWatching(turn);
    turn.thread = nullptr;
}

bool IsOver(const ReceiveTurn &turn) { return turn.ended || turn.thread->stop.load(std::memory_order_acquire); }

// When a rest is found to be over, the watch has seen nobody come.
bool RestsForReaders(StreamThread &thread, ReceiveTurn &turn) {
    const TurnState state = turn.state.load(std::memory_order_acquire);
    if (IsRest(state)) return true;
    const uint32_t visits = turn.visits.load(std::memory_order_acquire);
    const bool somebodyCame = std::exchange(thread.visitsSeen, visits) != visits;
    const bool hasRested = std::exchange(thread.hasRested, false);
    if (!IsTaken(state) && (!somebodyCame || hasRested)) return false;
    BeginRest(turn);
    return thread.hasRested = true;
}

bool BeginSocketWait(ReceiveTurn &turn) {
    TurnState state = TurnState::kFree;
    return turn.state.compare_exchange_strong(state, TurnState::kFreeThreadWaits, std::memory_order_acq_rel);
}

void EndSocketWait(ReceiveTurn &turn) {
    TurnState state = TurnState::kFreeThreadWaits;
    turn.state.compare_exchange_strong(state, TurnState::kFree, std::memory_order_acq_rel);
}

} // namespace rtsptap
