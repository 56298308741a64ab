// Whose turn it is to receive, a stream's datagrams or an interleaved connection's bytes: the receive thread's, or
// that of a reader that would otherwise sleep until that thread woke it. Waking a thread costs many times what
// receiving does; a reader in its turn is woken by the data itself. Between turns the thread watches the socket, so
// nothing stays in the kernel while the readers are busy.
#pragma once

#include <atomic>

namespace rtsptap {

struct StreamThread;

inline constexpr int kTurnSliceMs = 50; // a reader whose socket is silent looks around this often

struct ReceiveTurn {
    std::atomic<bool> taken{false};
    // ---- Whoever has the turn ----
    StreamThread *thread = nullptr; // that serves the socket; null: readers get no turn
    bool readersMayWait = false;    // in the socket: their waits there are limited
    int watch = -1;                 // epoll: the socket between turns, and the thread's wake
    int socket = -1;                // what is received from
    bool ended = false;             // it delivers nothing any more
};

// Holds the turn for the length of a block, if it can be had.
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

// ---- In a turn ----

// Makes the turn's thread watch the socket between turns; false when the system refuses.
bool OpenWatch(ReceiveTurn &turn, StreamThread &thread, int socket);
// No reader gets a turn any more.
void CloseWatch(ReceiveTurn &turn);
// Goes over to another socket, if it is another one.
void ChangeWatch(ReceiveTurn &turn, int socket);
// From here on the next datagram or byte wakes the thread, once; or it does not.
void WatchSocket(const ReceiveTurn &turn, bool watch);

// ---- Outside of a turn, the thread only ----

// Waits a while for the watched socket or for the thread's wake.
void WaitAtWatch(const StreamThread &thread, int watch);

} // namespace rtsptap
