// The system underneath: the clock for waiting, locks and waits, sockets, and cleanup that belongs to scope.
// The thin wrappers over threads, mutexes, condition variables, time and sockets are exported, see rtsptap.h.
// Any thread.
#pragma once

#include "rtsptap.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <span>
#include <sys/socket.h>
#include <utility>

namespace rtsptap {

// ---- The clock for waiting, which nobody sets. The wall clock is exported: GetTimeValue ----

inline uint64_t MonotonicMs() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

inline int64_t MonotonicNs() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

// The same moment for a wait on CLOCK_MONOTONIC.
inline timespec MonotonicTime(uint64_t ms) {
    return {static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000};
}

// ---- Threads of the library's own ----

// What they need, a callback of the program's may, and its thread-local data: a default stack is reserved for much
// more.
inline constexpr std::size_t kLibraryStackBytes = 1024 * 1024;

// Starts a thread to be joined, with a small stack. Signals are the program's affair: its handlers run on its own
// threads, and no wait of ours ends early. Those that tell of a fault of the thread itself stay as they are, for
// whoever writes crash reports.
bool StartLibraryThread(pthread_t &thread, void *(*body)(void *), void *argument);

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

// TCPSockRecv with flags of recv(2), and without its retry. That nothing has arrived yet, or that the call was
// interrupted, is not printed.
int ReceiveBytes(int sockfd, void *buf, int len, int flags);

// How long a receive call on the socket may wait. False when the system refuses.
bool LimitReceiveWait(int socket, int ms);

// ---- Datagrams in batches ----

// Where the next datagram goes: its first `size` bytes to `bytes`, what is longer to `spill`.
struct DatagramPlace {
    uint8_t *bytes;
    std::size_t size;
    uint8_t *spill;
    std::size_t spillSize;
    int received; // out: its own size, also when it does not fit
};

inline constexpr std::size_t kMostDatagrams = 16; // in one batch

// recvmmsg(2): waits for the first datagram as the flags say, never for the others. Returns how many came, or -1
// with errno; an interrupted call tells so (IsInterrupted). Of a single place the spill is not used: recvfrom(2).
int ReceiveDatagrams(int sockfd, std::span<DatagramPlace> places, int flags);

// When a datagram came, and how many the socket has dropped so far because its buffer was full.
struct DatagramArrival {
    int64_t ns;     // since 1970; 0: the system did not say
    uint32_t drops; // goes round
};

// From now on the system says so of the socket's datagrams.
void TellArrivals(int socket);

// ReceiveDatagrams that tells the arrivals, too, of as many as there are places.
int ReceiveDatagrams(int sockfd, std::span<DatagramPlace> places, DatagramArrival *arrivals, int flags);

// Whether an errno of a batch says that the system has no such call, or a filter of system calls none for us
// (seccomp(2)).
inline bool IsRefused(int error) { return error == ENOSYS || error == EPERM; }

// Tells of a datagram that did not fit into `len` bytes.
void TellLongDatagram(int received, int len);

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

// A lock for a few links to be moved under, which nearly always is free: taken and let go without a call. Who finds
// it taken waits a moment on the processor, which is much cheaper than falling asleep and being woken; then it
// naps, as the holder has lost the processor, and nobody is woken.
struct ShortLock {
    std::atomic<bool> taken{false};
    pthread_mutex_t line = PTHREAD_MUTEX_INITIALIZER; // of those that wait: one of them looks, the others sleep
};

// Waits for the lock, which was found taken, and takes it.
void WaitInLine(ShortLock &lock);

// Holds one for the length of a block.
class ScopedShortLock {
public:
    explicit ScopedShortLock(ShortLock &lock) : lock_(lock) {
        if (lock_.taken.exchange(true, std::memory_order_acquire)) WaitInLine(lock_);
    }
    ~ScopedShortLock() { lock_.taken.store(false, std::memory_order_release); }
    ScopedShortLock(const ScopedShortLock &) = delete;
    ScopedShortLock &operator=(const ScopedShortLock &) = delete;

private:
    ShortLock &lock_;
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
