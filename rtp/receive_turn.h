// Whose turn it is to receive, a stream's datagrams or an interleaved connection's bytes: the receive thread's, or
// that of a reader that would otherwise sleep until that thread woke it. Waking a thread costs many times what
// receiving does; a reader in its turn is woken by the data itself.
//
// Nothing is handed back between one turn of a reader and its next: while readers come and go the thread rests, and
// the reader watch looks by the clock whether they still do. When none has come for a while the thread waits for
// the socket and receives until the next one comes.
//
// No wake-up can be lost, because the thread waits in two ways only. It waits for the socket itself, and what lies
// there already ends that wait. Or it rests, which the turn's state says for as long as it lasts: each look sees
// the turns in that state, and a reader that leaves one looks itself if no look is to come.
#pragma once

#include "rtp/reader_watch.h"

#include <atomic>
#include <cstdint>

namespace rtsptap {

struct StreamThread;

inline constexpr int kTurnSliceMs = 50; // a reader whose socket is silent looks around this often

// 32 bits: what the system can wait for.
enum class TurnState : uint32_t {
    kFree,
    kFreeThreadWaits, // the thread waits for the socket: a reader that comes sends it to rest
    kFreeThreadRests, // watched: the thread is woken when no reader comes
    kTaken,           // by a reader or by the thread
    kTakenThreadRests // by a reader
};

// In a cache line of its own: the watch looks at those of all streams.
struct alignas(64) ReceiveTurn {
    std::atomic<TurnState> state{TurnState::kFree};
    std::atomic<uint32_t> visits{0};     // turns that readers have had; written in the turn
    std::atomic<uint64_t> lastLeftMs{0}; // MonotonicMs when a reader last left its turn
    std::atomic<int32_t> sleepers{0};    // readers that found it taken and wait to be signalled
    std::atomic<bool> ended{false};      // the socket delivers nothing any more; written in the turn
    // ---- Whoever has the turn; read by the watch while its thread rests ----
    StreamThread *thread = nullptr; // that serves the socket; null: readers get no turn
    bool readersMayWait = false;    // in the socket: their waits there are limited
    int64_t servedNs = 0;           // MonotonicNs when a reader that naps was last served; 0: none was
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

// The same for a reader: the thread rests meanwhile.
class ReaderTurn {
public:
    explicit ReaderTurn(ReceiveTurn &turn);
    ~ReaderTurn();
    ReaderTurn(const ReaderTurn &) = delete;
    ReaderTurn &operator=(const ReaderTurn &) = delete;
    bool IsMine() const { return mine_; } // and a thread serves the socket

private:
    ReceiveTurn &turn_;
    bool mine_ = false;
};

// Somebody has the turn. Any thread.
bool IsTaken(const ReceiveTurn &turn);

// ---- In a turn ----

// From here on readers may have turns.
void OpenTurn(ReceiveTurn &turn, StreamThread &thread);
// No reader gets a turn any more.
void CloseTurn(ReceiveTurn &turn);
// Nothing will be received any more; the thread has ended, or will.
bool IsOver(const ReceiveTurn &turn);

// ---- Outside of a turn, its thread only ----

// True while the thread is to rest, because readers come: it then waits for its orders, not for the socket.
bool RestsForReaders(StreamThread &thread, ReceiveTurn &turn);

// Around a wait for the socket. False when a reader has come instead: nobody is to wait.
bool BeginSocketWait(ReceiveTurn &turn);
void EndSocketWait(ReceiveTurn &turn);

} // namespace rtsptap
