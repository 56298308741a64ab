// The system underneath: the clock for waiting, locks and waits, sockets, and cleanup that belongs to scope.
// The thin wrappers over threads, mutexes, condition variables, time and sockets are exported, see rtsptap.h.
// Any thread.
#pragma once

#include "rtsptap.h"

#include <cstdint>
#include <ctime>
#include <sys/socket.h>
#include <utility>

namespace rtsptap {

// ---- The clock for waiting, which nobody sets. The wall clock is exported: GetTimeValue ----

inline uint64_t MonotonicMs() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

// ---- Waiting: the wait of a reader has more than one part, so its end is the caller's ----

inline constexpr uint64_t kConditionWaitMs = 5000; // how long WaitForConditionVar waits

// WaitForConditionVar with its end given, in milliseconds of the monotonic clock (MonotonicMs), which nobody sets.
// What is printed then says that nothing came for `waitMs`.
int WaitForConditionUntil(pthread_cond_t *condition, pthread_mutex_t *mutex, uint64_t deadlineMs,
                          uint64_t waitMs = kConditionWaitMs);

// ---- Receiving with flags of the caller's ----

// Whether a receive call with this errno is made again, rather than failed.
bool IsInterrupted(int error);

// UDPSockRecv with further flags of recvfrom(2), such as MSG_DONTWAIT, and without its retry: an interrupted call
// tells so (IsInterrupted), silently, that whoever receives can look at its orders.
int ReceiveDatagram(int sockfd, void *buf, int len, int flags, sockaddr *srcAddr, socklen_t *srcAddrLen);

// TCPSockRecv with flags of recv(2). That nothing has arrived yet (EAGAIN) is not printed.
int ReceiveBytes(int sockfd, void *buf, int len, int flags);

// ---- Cleanup that belongs to scope ----

// Holds a mutex for the length of a block.
class ScopedLock {
public:
    explicit ScopedLock(pthread_mutex_t &mutex) : mutex_(mutex) { MutexLock(&mutex_); }
    ~ScopedLock() { MutexUnlock(&mutex_); }
    ScopedLock(const ScopedLock &) = delete;
    ScopedLock &operator=(const ScopedLock &) = delete;

private:
    pthread_mutex_t &mutex_;
};

// The same for a mutex whose holders only ever move a few links: waiting for it a moment on the processor is much
// cheaper than falling asleep and being woken.
class ScopedShortLock {
public:
    explicit ScopedShortLock(pthread_mutex_t &mutex) : mutex_(mutex) {
        for (int tries = 0; tries < kTries; ++tries)
            if (pthread_mutex_trylock(&mutex_) == 0) return;
        MutexLock(&mutex_);
    }
    ~ScopedShortLock() { MutexUnlock(&mutex_); }
    ScopedShortLock(const ScopedShortLock &) = delete;
    ScopedShortLock &operator=(const ScopedShortLock &) = delete;

private:
    static constexpr int kTries = 100;
    pthread_mutex_t &mutex_;
};

// A descriptor that is shut down and closed unless a record takes it with Release().
class UniqueSocket {
public:
    explicit UniqueSocket(int fd) : fd_(fd) {}
    ~UniqueSocket() { CloseSock(fd_); }
    UniqueSocket(const UniqueSocket &) = delete;
    UniqueSocket &operator=(const UniqueSocket &) = delete;

    int Get() const { return fd_; }
    bool IsOpen() const { return fd_ >= 0; }
    int Release() { return std::exchange(fd_, -1); }

private:
    int fd_;
};

// Runs an undo at the end of the block unless it was dismissed.
template <typename Undo> class ScopeExit {
public:
    explicit ScopeExit(Undo undo) : undo_(std::move(undo)) {}
    ~ScopeExit() {
        if (armed_) undo_();
    }
    ScopeExit(const ScopeExit &) = delete;
    ScopeExit &operator=(const ScopeExit &) = delete;
    void Dismiss() { armed_ = false; }

private:
    Undo undo_;
    bool armed_ = true;
};

} // namespace rtsptap
