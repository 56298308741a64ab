// Time that runs a thousand times faster, for the targets whose calls wait: 25 seconds for a reply become 25 ms.
// The linker puts these in place of what the library calls (--wrap, see CMakeLists.txt). The system's wall clock
// stays, as libFuzzer reads it.
#include <algorithm>
#include <cstdint>
#include <ctime>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/time.h>

extern "C" {

int __real_clock_gettime(clockid_t clock, timespec *now);
int __real_poll(pollfd *waits, nfds_t count, int timeoutMs);
int __real_epoll_wait(int watch, epoll_event *events, int count, int timeoutMs);
int __real_nanosleep(const timespec *delay, timespec *rest);
int __real_setsockopt(int socket, int level, int option, const void *value, socklen_t size);
int __real_pthread_cond_timedwait(pthread_cond_t *condition, pthread_mutex_t *mutex, const timespec *deadline);
int __real_pthread_cond_clockwait(pthread_cond_t *condition, pthread_mutex_t *mutex, clockid_t clock,
                                  const timespec *deadline);
}

namespace {

constexpr long kFactor = 1000;
constexpr long long kSecond = 1000000000;

long long Nanoseconds(const timespec &time) { return time.tv_sec * kSecond + time.tv_nsec; }
timespec Time(long long nanoseconds) { return {nanoseconds / kSecond, static_cast<long>(nanoseconds % kSecond)}; }
int Shorter(int milliseconds) {
    return milliseconds < 0 ? -1 : static_cast<int>((milliseconds + kFactor - 1) / kFactor);
}

long long WallClock() {
    timespec now;
    __real_clock_gettime(CLOCK_REALTIME, &now);
    return Nanoseconds(now);
}

// From where on the wall clock is fast.
long long Start() {
    static const long long start = WallClock();
    return start;
}

} // namespace

extern "C" {

int __wrap_clock_gettime(clockid_t clock, timespec *now) {
    const int result = __real_clock_gettime(clock, now);
    if (clock == CLOCK_MONOTONIC) *now = Time(Nanoseconds(*now) * kFactor);
    return result;
}

uint64_t __wrap_GetTimeValue() {
    const long long start = Start();
    return static_cast<uint64_t>((start + (WallClock() - start) * kFactor) / (kSecond / 1000));
}

int __wrap_poll(pollfd *waits, nfds_t count, int timeoutMs) {
    return __real_poll(waits, count, Shorter(timeoutMs));
}

int __wrap_epoll_wait(int watch, epoll_event *events, int count, int timeoutMs) {
    return __real_epoll_wait(watch, events, count, Shorter(timeoutMs));
}

int __wrap_nanosleep(const timespec *delay, timespec *rest) {
    const timespec shorter = Time(Nanoseconds(*delay) / kFactor);
    return __real_nanosleep(&shorter, rest);
}

int __wrap_setsockopt(int socket, int level, int option, const void *value, socklen_t size) {
    if (level != SOL_SOCKET || option != SO_RCVTIMEO) return __real_setsockopt(socket, level, option, value, size);
    timeval shorter = *static_cast<const timeval *>(value);
    shorter.tv_usec = std::max(shorter.tv_usec / kFactor, 1L);
    return __real_setsockopt(socket, level, option, &shorter, size);
}

int __wrap_pthread_cond_timedwait(pthread_cond_t *condition, pthread_mutex_t *mutex, const timespec *deadline) {
    const timespec real = Time(Start() + (Nanoseconds(*deadline) - Start()) / kFactor);
    return __real_pthread_cond_timedwait(condition, mutex, &real);
}

int __wrap_pthread_cond_clockwait(pthread_cond_t *condition, pthread_mutex_t *mutex, clockid_t clock,
                                  const timespec *deadline) {
    const timespec real = Time(Nanoseconds(*deadline) / kFactor);
    return __real_pthread_cond_clockwait(condition, mutex, clock, &real);
}
}
