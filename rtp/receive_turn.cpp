#include "rtp/receive_turn.h"

#include "platform/system.h"
#include "rtp/service_thread.h"
#include "rtp/serving.h"

#include <cerrno>
#include <poll.h>

namespace rtsptap {
namespace {

// How long no reader may have come before the thread receives: what comes meanwhile must fit into the socket's
// buffer, and every look costs a wake-up.
constexpr int kRestMs = 4;
constexpr int kShortRestMs = 1; // while somebody else waits for what the connection brings
constexpr int kNoLimit = -1;

bool IsTaken(TurnState state) { return state == TurnState::kTaken || state == TurnState::kTakenThreadSleeps; }

// Takes a free turn; `found` is the state it was in.
bool TakeFree(ReceiveTurn &turn, TurnState &found) {
    found = turn.state.load(std::memory_order_relaxed);
    while (!IsTaken(found))
        if (turn.state.compare_exchange_weak(found, TurnState::kTaken, std::memory_order_acq_rel)) return true;
    return false;
}

bool Take(ReceiveTurn &turn, ScopedTurn::Patience patience) {
    TurnState found;
    while (!TakeFree(turn, found)) {
        if (patience == ScopedTurn::kTry) return false;
        turn.state.wait(found, std::memory_order_relaxed);
    }
    return true;
}

void GiveBack(ReceiveTurn &turn) {
    turn.state.store(TurnState::kFree, std::memory_order_release);
    turn.state.notify_one();
}

void WaitForWake(const StreamThread &thread, int timeoutMs) {
    pollfd wake = {thread.wake, POLLIN, 0};
    if (poll(&wake, 1, timeoutMs) == 1) DrainWake(thread.wake);
}

// A reader that waits long spares the thread its looks by the clock. The state changes once in a reader's turn, and
// the wake that answers it is yet to come: a thread that was woken and finds the reader still there does not sleep
// again.
void SleepUntilReaderLeaves(const StreamThread &thread, ReceiveTurn &turn) {
    TurnState state = TurnState::kTaken;
    if (turn.state.compare_exchange_strong(state, TurnState::kTakenThreadSleeps, std::memory_order_acq_rel))
        WaitForWake(thread, kNoLimit);
}

} // namespace

ScopedTurn::ScopedTurn(ReceiveTurn &turn, Patience patience) : turn_(turn), mine_(Take(turn, patience)) {}

ScopedTurn::~ScopedTurn() {
    if (mine_) GiveBack(turn_);
}

ReaderTurn::ReaderTurn(ReceiveTurn &turn) : turn_(turn) {
    TurnState found;
    mine_ = TakeFree(turn, found);
    if (!mine_) return;
    if (turn.thread == nullptr) {
        mine_ = false;
        GiveBack(turn);
        return;
    }
    turn.visits.fetch_add(1, std::memory_order_release);
    // The thread would be woken by every datagram, too, and find it gone.
    if (found == TurnState::kFreeThreadWaits) WakeStreamThread(*turn.thread);
}

ReaderTurn::~ReaderTurn() {
    if (!mine_) return;
    // Where nothing more comes the thread is not to rest: it has to end.
    if (!turn_.ended) turn_.lastVisitMs.store(MonotonicMs(), std::memory_order_release);
    TurnState state = TurnState::kTaken;
    if (turn_.state.compare_exchange_strong(state, TurnState::kFree, std::memory_order_acq_rel)) {
        turn_.state.notify_one();
        return;
    }
    // The thread sleeps, and lives as long as the turn is held: it takes the turn to end.
    WakeStreamThread(*turn_.thread);
    GiveBack(turn_);
}

void OpenTurn(ReceiveTurn &turn, StreamThread &thread) {
    turn.thread = &thread;
    turn.ended = false;
}

void CloseTurn(ReceiveTurn &turn) { turn.thread = nullptr; }

bool IsOver(const ReceiveTurn &turn) { return turn.ended || turn.thread->stop.load(std::memory_order_acquire); }

bool RestForReaders(const StreamThread &thread, ReceiveTurn &turn) {
    const int restMs = turn.sleepers.load(std::memory_order_relaxed) > 0 ? kShortRestMs : kRestMs;
    const uint32_t visits = turn.visits.load(std::memory_order_acquire);
    if (!IsTaken(turn.state.load(std::memory_order_acquire))) {
        const uint64_t lastVisitMs = turn.lastVisitMs.load(std::memory_order_acquire); // before the clock is read
        const uint64_t away = MonotonicMs() - lastVisitMs;
        if (away >= static_cast<uint64_t>(restMs)) return false;
        WaitForWake(thread, restMs - static_cast<int>(away));
        return true;
    }
    WaitForWake(thread, restMs);
    if (turn.visits.load(std::memory_order_acquire) == visits && !MustEnd(thread))
        SleepUntilReaderLeaves(thread, turn);
    return true;
}

Readiness WaitForSocket(const StreamThread &thread, int socket, int timeoutMs) {
    pollfd waits[] = {{socket, POLLIN, 0}, {thread.wake, POLLIN, 0}};
    const int ready = poll(waits, 2, timeoutMs);
    if (ready < 0) return {.failed = errno != EINTR};
    if ((waits[1].revents & POLLIN) != 0) DrainWake(thread.wake);
    return {.timedOut = ready == 0, .events = waits[0].revents};
}

void WaitForData(const StreamThread &thread, ReceiveTurn &turn, int socket, int timeoutMs) {
    TurnState state = TurnState::kFree;
    if (!turn.state.compare_exchange_strong(state, TurnState::kFreeThreadWaits, std::memory_order_acq_rel)) return;
    WaitForSocket(thread, socket, timeoutMs);
    state = TurnState::kFreeThreadWaits;
    turn.state.compare_exchange_strong(state, TurnState::kFree, std::memory_order_acq_rel);
}

} // namespace rtsptap
