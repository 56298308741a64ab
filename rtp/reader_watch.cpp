#include "rtp/reader_watch.h"

#include "platform/system.h"
#include "rtp/receive_turn.h"
#include "rtp/service_thread.h"

#include <algorithm>
#include <atomic>
#include <semaphore.h>
#include <unistd.h>
#include <utility>

namespace rtsptap {
namespace {

constexpr int kNobodyComes = -1;

// ---- the looks ----

pthread_mutex_t turnsLock = PTHREAD_MUTEX_INITIALIZER; // guards the list and what is remembered; a leaf
ReceiveTurn *turns = nullptr;

// The thread lives: it takes the turn out of the list before it ends.
void WakeFromRest(ReceiveTurn &turn) {
    TurnState state = TurnState::kFreeThreadRests;
    if (turn.state.compare_exchange_strong(state, TurnState::kFree, std::memory_order_acq_rel))
        WakeStreamThread(*turn.thread);
}

// Returns in how many ms to look again: where a reader is away, when it has been for long enough; else after a
// whole rest, if one was here since the last look; or kNobodyComes, as one that leaves will call.
int LookAt(ReceiveTurn &turn, uint64_t now) {
    const bool isAway = turn.state.load(std::memory_order_seq_cst) == TurnState::kFreeThreadRests;
    const uint32_t visits = turn.visits.load(std::memory_order_acquire);
    const bool somebodyCame = std::exchange(turn.watched.visits, visits) != visits;
    if (!isAway) return somebodyCame ? kRestMs : kNobodyComes;
    const int restMs = turn.sleepers.load(std::memory_order_relaxed) > 0 ? kShortRestMs : kRestMs;
    const uint64_t leftMs = turn.lastLeftMs.load(std::memory_order_relaxed);
    const int away = leftMs < now ? static_cast<int>(std::min<uint64_t>(now - leftMs, kRestMs)) : 0;
    if (away < restMs) return restMs - away;
    WakeFromRest(turn);
    return kNobodyComes;
}

int LookAtAll() {
    const ScopedLock lock(turnsLock);
    const uint64_t now = MonotonicMs();
    int soonest = kNobodyComes;
    for (ReceiveTurn *turn = turns; turn != nullptr; turn = turn->watched.next) {
        const int next = LookAt(*turn, now);
        if (next != kNobodyComes) soonest = soonest == kNobodyComes ? next : std::min(soonest, next);
    }
    return soonest;
}

// ---- the thread ----

sem_t called; // it is to look, or to end; made once for good: a reader may still call when it has ended
std::atomic<bool> sleeps{false}; // without limit: who leaves a turn calls
std::atomic<bool> mustEnd{false};

void WaitFor(int ms) {
    const uint64_t end = MonotonicMs() + static_cast<uint64_t>(ms);
    const timespec until = MonotonicTime(end);
    sem_clockwait(&called, CLOCK_MONOTONIC, &until);
}

// No reader that leaves is missed: it sees that the watch sleeps, or the last look sees that it has left.
void SleepUntilCalled() {
    sleeps.store(true, std::memory_order_seq_cst);
    if (LookAtAll() == kNobodyComes && !mustEnd.load(std::memory_order_acquire)) sem_wait(&called);
    sleeps.store(false, std::memory_order_relaxed);
}

void *WatchReaders(void * /*unused*/) {
    while (!mustEnd.load(std::memory_order_acquire)) {
        const int nextMs = LookAtAll();
        if (nextMs == kNobodyComes)
            SleepUntilCalled();
        else
            WaitFor(nextMs);
    }
    return nullptr;
}

// ---- its life ----

pthread_mutex_t lifeLock = PTHREAD_MUTEX_INITIALIZER; // guards these; held while the thread starts and ends
int needs = 0;
pthread_t thread;
pid_t owner = 0; // whose they are

// A child of fork(2) has none of its parent's threads, but may have sessions of its own.
void ForgetParent() {
    if (needs == 0 || owner == getpid()) return;
    needs = 0;
    turns = nullptr;
    turnsLock = PTHREAD_MUTEX_INITIALIZER;
    sleeps.store(false, std::memory_order_relaxed);
}

} // namespace

bool NeedReaderWatch() {
    static pthread_once_t made = PTHREAD_ONCE_INIT;
    pthread_once(&made, [] { sem_init(&called, 0, 0); });
    const ScopedLock lock(lifeLock);
    ForgetParent();
    if (needs == 0) {
        mustEnd.store(false, std::memory_order_release);
        if (!StartLibraryThread(thread, WatchReaders, nullptr)) return false;
    }
    ++needs;
    owner = getpid();
    return true;
}

void ReleaseReaderWatch() {
    const ScopedLock lock(lifeLock);
    if (owner != getpid() || --needs > 0) return;
    mustEnd.store(true, std::memory_order_release);
    sem_post(&called);
    WaitForThreadCompletion(thread);
}

void BeginWatching(ReceiveTurn &turn) {
    const ScopedLock lock(turnsLock);
    turn.watched = {.next = turns};
    if (turns != nullptr) turns->watched.prev = &turn;
    turns = &turn;
}

void EndWatching(ReceiveTurn &turn) {
    const ScopedLock lock(turnsLock);
    const WatchedTurn &watched = turn.watched;
    (watched.prev == nullptr ? turns : watched.prev->watched.next) = watched.next;
    if (watched.next != nullptr) watched.next->watched.prev = watched.prev;
}

void EndRest(ReceiveTurn &turn) {
    const ScopedLock lock(turnsLock);
    WakeFromRest(turn);
}

void TellReaderLeft() {
    if (sleeps.load(std::memory_order_seq_cst) && sleeps.exchange(false, std::memory_order_acq_rel))
        sem_post(&called);
}

} // namespace rtsptap
