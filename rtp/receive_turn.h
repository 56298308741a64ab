// Whose turn it is to receive, a stream's datagrams or an interleaved connection's bytes: the receive thread's, or
// that of a reader that would otherwise sleep until that thread woke it. Waking a thread costs many times what
// receiving does; a reader in its turn is woken by the data itself.
//
// Nothing is handed back between one turn of a reader and its next: while readers come and go the thread rests and
// looks by the clock whether they still do. When none has come for a while it waits for the socket and receives
// until the next one comes.
//
// No wake-up can be lost, because the thread sleeps in three ways only. It waits for the socket itself, and what
// lies there already ends that wait. It rests for a few milliseconds. Or it sleeps while a reader has the turn,
// which the turn's state says, at most once in each of a reader's turns: the reader finds that state when it
// leaves, and wakes the thread. A thread that is awake again before the turn is given back rests by the clock.
#pragma once

#include <atomic>
#include <cstdint>

namespace rtsptap {

struct Readiness;
struct StreamThread;

inline constexpr int kTurnSliceMs = 50; // a reader whose socket is silent looks around this often

enum class TurnState : uint8_t {
    kFree,
    kFreeThreadWaits,  // the thread waits for the socket: a reader that comes sends it to rest
    kTaken,            // by a reader or by the thread
    kTakenThreadSleeps // by a reader, which wakes the thread when it leaves
};

struct ReceiveTurn {
    std::atomic<TurnState> state{TurnState::kFree};
    std::atomic<uint32_t> visits{0};      // turns that readers have had
    std::atomic<uint64_t> lastVisitMs{0}; // MonotonicMs when a reader last left its turn
    std::atomic<int32_t> sleepers{0};     // readers that found it taken and wait to be signalled
    // ---- Whoever has the turn ----
    StreamThread *thread = nullptr; // that serves the socket; null: readers get no turn
    bool readersMayWait = false;    // in the socket: their waits there are limited
    bool ended = false;             // it delivers nothing any more
};

// Holds the turn for the length of a block, if it can be had. The thread's.
class ScopedTurn {
public:
    enum Patience { kTry, kWait };
    ScopedTurn(ReceiveTurn &turn, Patience patience);
    ~ScopedTurn();
    ScopedTurn(const ScopedTurn &) = delete;
    ScopedTurn &operator=(const ScopedTurn &) = delete;
    bool IsMine() const { return mine_; }

private:
    ReceiveTurn &turn_;
    const bool mine_;
};

// The same for a reader: the thread rests meanwhile, and hears of it when it sleeps until the reader leaves.
class ReaderTurn {
public:
    explicit ReaderTurn(ReceiveTurn &turn);
    ~ReaderTurn();
    ReaderTurn(const ReaderTurn &) = delete;
    ReaderTurn &operator=(const ReaderTurn &) = delete;
    bool IsMine() const { return mine_; } // and a thread serves the socket

private:
    ReceiveTurn &turn_;
    bool mine_;
};

// ---- In a turn ----

// From here on readers may have turns.
void OpenTurn(ReceiveTurn &turn, StreamThread &thread);
// No reader gets a turn any more.
void CloseTurn(ReceiveTurn &turn);
// Nothing will be received any more; the thread has ended, or will.
bool IsOver(const ReceiveTurn &turn);

// ---- Outside of a turn, the thread only ----

// True after a rest, when readers come; false at once when the thread is to receive itself.
bool RestForReaders(const StreamThread &thread, ReceiveTurn &turn);

// Waits for the socket, for the thread's wake, for a reader that wants to receive, or `timeoutMs`.
void WaitForData(const StreamThread &thread, ReceiveTurn &turn, int socket, int timeoutMs);

// The same where readers have no part.
Readiness WaitForSocket(const StreamThread &thread, int socket, int timeoutMs);

} // namespace rtsptap
