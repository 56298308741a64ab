// Cleanup that belongs to scope: a held lock, a socket nobody owns yet, an undo that may be dismissed.
#pragma once

#include "rtsptap.h"

#include <utility>

namespace rtsptap {

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
