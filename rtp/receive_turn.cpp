#include "rtp/receive_turn.h"

#include "rtp/stream_thread.h"

#include <sys/epoll.h>
#include <unistd.h>

namespace rtsptap {
namespace {

constexpr int kWatchMs = 200; // the thread then looks itself: the system may have refused to watch

bool Take(ReceiveTurn &turn, ScopedTurn::Patience patience) {
    while (turn.taken.exchange(true, std::memory_order_acquire)) {
        if (patience == ScopedTurn::kTry) return false;
        turn.taken.wait(true, std::memory_order_relaxed);
    }
    return true;
}

bool AddToWatch(int watch, int descriptor, uint32_t events) {
    epoll_event event = {};
    event.events = events;
    event.data.fd = descriptor;
    return epoll_ctl(watch, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

} // namespace

ScopedTurn::ScopedTurn(ReceiveTurn &turn, Patience patience) : turn_(turn), mine_(Take(turn, patience)) {}

ScopedTurn::~ScopedTurn() {
    if (!mine_) return;
    turn_.taken.store(false, std::memory_order_release);
    turn_.taken.notify_one();
}

bool OpenWatch(ReceiveTurn &turn, StreamThread &thread, int socket) {
    turn.watch = epoll_create1(EPOLL_CLOEXEC);
    turn.thread = &thread;
    turn.socket = socket;
    turn.ended = false;
    if (turn.watch >= 0 && AddToWatch(turn.watch, thread.wake, EPOLLIN) &&
        AddToWatch(turn.watch, socket, EPOLLONESHOT))
        return true;
    CloseWatch(turn);
    return false;
}

void CloseWatch(ReceiveTurn &turn) {
    if (turn.watch >= 0) close(turn.watch);
    turn.watch = -1;
    turn.thread = nullptr;
}

void ChangeWatch(ReceiveTurn &turn, int socket) {
    if (turn.socket == socket) return;
    if (turn.watch >= 0) {
        epoll_ctl(turn.watch, EPOLL_CTL_DEL, turn.socket, nullptr);
        AddToWatch(turn.watch, socket, EPOLLONESHOT);
    }
    turn.socket = socket;
}

void WatchSocket(const ReceiveTurn &turn, bool watch) {
    if (turn.watch < 0) return;
    epoll_event event = {};
    event.events = EPOLLONESHOT;
    event.data.fd = turn.socket;
    if (watch) event.events |= EPOLLIN;
    epoll_ctl(turn.watch, EPOLL_CTL_MOD, turn.socket, &event);
}

void WaitAtWatch(const StreamThread &thread, int watch) {
    epoll_event event = {};
    if (epoll_wait(watch, &event, 1, kWatchMs) == 1 && event.data.fd == thread.wake) DrainWake(thread.wake);
}

} // namespace rtsptap
