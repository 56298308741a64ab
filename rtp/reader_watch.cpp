#include "rtp/reader_watch.h"

#include "platform/system.h"
#include "rtp/receive_turn.h"
#include "rtp/service_thread.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <span>
#include <sys/timerfd.h>
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
int LookAtAll(uint64_t now) {
    constexpr std::size_t kAhead = 8;
    int soonest = kNobodyComes;
    for (std::size_t at = 0; at < turnCount; ++at) {
        __builtin_prefetch(turns[std::min(at + kAhead, turnCount - 1)].turn);
        const int next = LookAt(turns[at], now);
        if (next != kNobodyComes) soonest = soonest == kNobodyComes ? next : std::min(soonest, next);
    }
    return soonest;
}

// ---- who looks, and when ----

// Whoever leaves a turn once a look is due makes it, and moves the alarm that would wake the thread: while readers
// come and go it sleeps on. To wake a thread costs the processor more than most bursts do.
constexpr uint64_t kNobodyIsAwaited = 0; // who leaves a turn next looks
std::atomic<uint64_t> lookAtMs{kNobodyIsAwaited};
std::atomic<uint32_t> looksWanted{0};
std::atomic<bool> mustEnd{false};
int alarmClock = -1; // timerfd; wakes the thread

// Readers are to be there first.
constexpr int EarlierMs(int nextMs) { return std::min(nextMs / 2, 2); }

void SetAlarm(uint64_t atMs) {
    const itimerspec at = {.it_interval = {}, .it_value = MonotonicTime(atMs)};
    timerfd_settime(alarmClock, TFD_TIMER_ABSTIME, &at, nullptr);
}

// No reader that leaves is missed: it sees that nobody is awaited, or the second look sees that it has left.
void LookOnce() {
    const ScopedLock lock(turnsLock);
    const uint64_t now = MonotonicMs();
    int nextMs = LookAtAll(now);
    if (nextMs == kNobodyComes) {
        lookAtMs.store(kNobodyIsAwaited, std::memory_order_seq_cst);
        nextMs = LookAtAll(now);
    }
    if (nextMs == kNobodyComes) return;
    SetAlarm(now + static_cast<uint64_t>(nextMs));
    lookAtMs.store(now + static_cast<uint64_t>(nextMs - EarlierMs(nextMs)), std::memory_order_seq_cst);
}

// Who comes while somebody looks has that one look again.
void Look() {
    if (looksWanted.fetch_add(1, std::memory_order_acq_rel) > 0) return;
    uint32_t wanted = 0;
    do {
        wanted = looksWanted.load(std::memory_order_acquire);
        LookOnce();
    } while (!looksWanted.compare_exchange_strong(wanted, 0, std::memory_order_acq_rel));
}

void *WatchReaders(void * /*unused*/) {
    while (!mustEnd.load(std::memory_order_acquire)) {
        uint64_t rings = 0;
        if (read(alarmClock, &rings, sizeof rings) == sizeof rings) Look();
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
    looksWanted.store(0, std::memory_order_relaxed);
    lookAtMs.store(kNobodyIsAwaited, std::memory_order_relaxed);
    close(std::exchange(alarmClock, -1));
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

bool StartWatch() {
    mustEnd.store(false, std::memory_order_release);
    alarmClock = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    if (alarmClock < 0) return false;
    if (StartLibraryThread(thread, WatchReaders, nullptr)) return true;
    errno = EAGAIN;
    return false;
}

// Nobody watches.
void GiveBack() {
    std::free(std::exchange(turns, nullptr));
    turnRoom = 0;
    if (alarmClock >= 0) close(std::exchange(alarmClock, -1));
}

} // namespace

bool NeedReaderWatch() {
    const ScopedLock lock(lifeLock);
    ForgetParent();
    if (!MakeRoom(static_cast<std::size_t>(needs) + 1)) return false;
    if (needs == 0 && !StartWatch()) return GiveBack(), false;
    ++needs;
    owner = getpid();
    return true;
}

void ReleaseReaderWatch() {
    const ScopedLock lock(lifeLock);
    if (owner != getpid() || --needs > 0) return;
    mustEnd.store(true, std::memory_order_release);
    SetAlarm(MonotonicMs());
    WaitForThreadCompletion(thread);
    GiveBack();
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

void TellReaderLeft(uint64_t nowMs) {
    if (nowMs >= lookAtMs.load(std::memory_order_seq_cst)) Look();
}

} // namespace rtsptap
