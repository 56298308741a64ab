#include "rtp/reader_watch.h"

#include "platform/system.h"
#include "rtp/receive_turn.h"
#include "rtp/service_thread.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <semaphore.h>
#include <span>
#include <unistd.h>
#include <utility>

namespace rtsptap {
namespace {

constexpr int kNobodyComes = -1;

// ---- the looks ----

struct WatchedTurn {
    ReceiveTurn *turn = nullptr;
    uint32_t visits = 0; // that it had had at the last look
    uint32_t pace = 0;   // visits from one look to the next, when there were some; falls by half at most
};

pthread_mutex_t turnsLock = PTHREAD_MUTEX_INITIALIZER; // guards these three; a leaf
WatchedTurn *turns = nullptr;                          // owned, free()
std::size_t turnCount = 0;
std::size_t turnRoom = 0;

// The thread lives: it takes the turn out of the list before it ends.
void WakeFromRest(ReceiveTurn &turn) {
    TurnState state = TurnState::kFreeThreadRests;
    if (turn.state.compare_exchange_strong(state, TurnState::kFree, std::memory_order_acq_rel))
        WakeStreamThread(*turn.thread);
}

// How long its reader may be away. Where visits are rare packets are, too: one look does for what would be two.
int RestMs(const WatchedTurn &watched) {
    constexpr uint32_t kFewVisits = 4;
    if (watched.turn->sleepers.load(std::memory_order_relaxed) > 0) return kShortRestMs;
    return watched.pace > kFewVisits ? kRestMs : kLongRestMs;
}

// Returns in how many ms to look again: where a reader is away, when it has been for long enough; else after a
// whole rest, if one was here since the last look; or kNobodyComes, as one that leaves will call.
int LookAt(WatchedTurn &watched, uint64_t now) {
    ReceiveTurn &turn = *watched.turn;
    const bool isAway = turn.state.load(std::memory_order_seq_cst) == TurnState::kFreeThreadRests;
    const uint32_t visits = turn.visits.load(std::memory_order_acquire);
    const uint32_t came = visits - std::exchange(watched.visits, visits);
    if (came > 0) watched.pace = std::max(came, watched.pace / 2);
    const int restMs = RestMs(watched);
    if (!isAway) return came > 0 ? restMs : kNobodyComes;
    const uint64_t leftMs = turn.lastLeftMs.load(std::memory_order_relaxed);
    const int away = leftMs < now ? static_cast<int>(std::min<uint64_t>(now - leftMs, kLongRestMs)) : 0;
    if (away < restMs) return restMs - away;
    WakeFromRest(turn);
    return kNobodyComes;
}

// They lie far apart, in memory that nobody has used for milliseconds: it is asked for some turns ahead.
int LookAtAll() {
    constexpr std::size_t kAhead = 8;
    const ScopedLock lock(turnsLock);
    const uint64_t now = MonotonicMs();
    int soonest = kNobodyComes;
    for (std::size_t at = 0; at < turnCount; ++at) {
        __builtin_prefetch(turns[std::min(at + kAhead, turnCount - 1)].turn);
        const int next = LookAt(turns[at], now);
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
    turns = nullptr; // it may be half way to a larger place
    turnCount = turnRoom = 0;
    turnsLock = PTHREAD_MUTEX_INITIALIZER;
    sleeps.store(false, std::memory_order_relaxed);
}

// Nobody has more than one turn open.
bool MakeRoom(std::size_t count) {
    const ScopedLock lock(turnsLock);
    if (count <= turnRoom) return true;
    auto *const larger = static_cast<WatchedTurn *>(std::realloc(turns, 2 * count * sizeof *turns));
    if (larger == nullptr) return false;
    turns = larger;
    turnRoom = 2 * count;
    return true;
}

// Nobody watches.
void GiveRoomBack() {
    std::free(std::exchange(turns, nullptr));
    turnRoom = 0;
}

} // namespace

bool NeedReaderWatch() {
    static pthread_once_t made = PTHREAD_ONCE_INIT;
    pthread_once(&made, [] { sem_init(&called, 0, 0); });
    const ScopedLock lock(lifeLock);
    ForgetParent();
    if (!MakeRoom(static_cast<std::size_t>(needs) + 1)) return false;
    if (needs == 0) {
        mustEnd.store(false, std::memory_order_release);
        if (!StartLibraryThread(thread, WatchReaders, nullptr)) return GiveRoomBack(), false;
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
    GiveRoomBack();
}

void BeginWatching(ReceiveTurn &turn) {
    const ScopedLock lock(turnsLock);
    turns[turnCount++] = {.turn = &turn};
}

void EndWatching(ReceiveTurn &turn) {
    const ScopedLock lock(turnsLock);
    const std::span<WatchedTurn> all(turns, turnCount);
    const auto place = std::ranges::find(all, &turn, &WatchedTurn::turn);
    if (place == all.end()) return;
    *place = all.back();
    --turnCount;
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
