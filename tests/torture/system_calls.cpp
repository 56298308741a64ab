#include "tests/torture/system_calls.h"

#include "rtsp/client/client.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <iterator>
#include <netdb.h>
#include <new>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/time.h>
#include <sys/timerfd.h>
#include <ucontext.h>
#include <unistd.h>
#include <utility>

namespace torture {
namespace {

constexpr int64_t kHurry = 1000; // time, once it hurries: 25 seconds take 25 ms
constexpr int64_t kMs = 1000000; // nanoseconds
constexpr int64_t kSecond = 1000 * kMs;
constexpr int kDescriptors = 1 << 16;

std::atomic<const Fault *> armed;
std::atomic<long> callsLeft;
std::atomic<bool> struck;
std::atomic<bool> owned[kDescriptors];
std::atomic<int> misused{-1}; // a descriptor that was not the library's
std::atomic<long> blocks, descriptors, threads, mutexes, conditions;
std::atomic<int64_t> hurriesFrom;                // of the system's monotonic clock; 0: time goes as it does
thread_local pthread_mutex_t *refused = nullptr; // by a failed lock: its unlock is left out

thread_local int locksHeld = 0;
thread_local const char *mayWait = nullptr;

void NoteWait(const char *call, bool waits) {
    if (waits) mayWait = call;
}

bool IsReady(int fd, short events) {
    pollfd one = {fd, events, 0};
    return poll(&one, 1, 0) != 0;
}

// The fault when it is this call's turn.
const Fault *Strike(const char *call) {
    const Fault *const fault = armed;
    if (fault == nullptr || fault->call != call) return nullptr;
    const long left = callsLeft.fetch_sub(1);
    if (left > 0 || (left < 0 && fault->effect != kStrikes)) return nullptr;
    struck = true;
    if (!fault->isRepeated) Hurry();
    errno = fault->effect == kStrikes ? ENOMEM : fault->effect;
    return fault;
}

bool Fails(const char *call) { return Strike(call) != nullptr; }

int Taken(int fd) {
    if (fd < 0) return fd;
    owned[fd] = true;
    ++descriptors;
    return fd;
}

int Used(int fd) {
    if (fd >= kDescriptors || (fd >= 0 && !owned[fd])) misused = fd;
    return fd;
}

void *Counted(void *memory, long blocksMore = 1) {
    if (memory != nullptr) blocks += blocksMore;
    return memory;
}

// A transfer of `size` bytes that may fail, come short or bring nothing.
template <typename Real> ssize_t Transfer(const char *call, int fd, size_t size, Real real) {
    Used(fd);
    const Fault *const fault = Strike(call);
    if (fault == nullptr) return real(size);
    if (fault->effect == kNothing) return 0;
    if (fault->effect != kShort) return -1;
    if (strcmp(call, "recvfrom") != 0) return real((size + 1) / 2);
    const ssize_t whole = real(size); // a short datagram: the rest never was
    return std::min<ssize_t>(whole, 13);
}

int64_t Nanoseconds(const timespec &time) { return time.tv_sec * kSecond + time.tv_nsec; }
timespec Time(int64_t ns) { return {ns / kSecond, ns % kSecond}; }
int64_t Speed() { return hurriesFrom == 0 ? 1 : kHurry; }

int64_t SystemNow(clockid_t clock) {
    timespec now = {};
    clock_gettime(clock, &now);
    return Nanoseconds(now);
}

int64_t Now(clockid_t clock) {
    const int64_t from = hurriesFrom;
    return SystemNow(clock) + (from == 0 ? 0 : (SystemNow(CLOCK_MONOTONIC) - from) * (kHurry - 1));
}

// Waits in slices, as time may begin to hurry meanwhile. `wait` gets the length of a slice in the system's
// nanoseconds and returns `expired` when nothing happened in it.
template <typename Wait> int WaitUntil(int64_t end, clockid_t clock, int expired, const Wait &wait) {
    for (;;) {
        const int result = wait(std::clamp<int64_t>((end - Now(clock)) / Speed(), 0, 5 * kMs));
        if (result != expired || Now(clock) >= end) return result;
    }
}

template <typename Wait> int WaitMs(int ms, const Wait &wait) {
    if (ms <= 0) return wait(ms);
    return WaitUntil(Now(CLOCK_MONOTONIC) + ms * kMs, CLOCK_MONOTONIC, 0,
                     [&](int64_t ns) { return wait(static_cast<int>((ns + kMs - 1) / kMs)); });
}

// How often a condition has been signalled, or another that shares its place.
std::atomic<unsigned> &Signals(const pthread_cond_t *condition) {
    static std::atomic<unsigned> signals[256];
    return signals[reinterpret_cast<uintptr_t>(condition) / sizeof *condition % std::size(signals)];
}

// A signal that comes as a slice ends finds nobody waiting: it ends the wait all the same.
int WaitOn(pthread_cond_t *condition, pthread_mutex_t *mutex, clockid_t clock, const timespec *deadline) {
    const unsigned before = Signals(condition);
    return WaitUntil(Nanoseconds(*deadline), clock, ETIMEDOUT, [=](int64_t ns) {
        const timespec end = Time(SystemNow(clock) + ns);
        const int result = pthread_cond_clockwait(condition, mutex, clock, &end);
        return result == ETIMEDOUT && Signals(condition) != before ? 0 : result;
    });
}

} // namespace

thread_local std::function<void()> atNextClock;
std::atomic<bool> namesHang = false;
std::atomic<int> namesAsked = 0;
thread_local std::function<void()> atNextAlarm;
thread_local std::function<void()> atNextSleep;

void Arm(const Fault &fault, long nth) {
    static Fault one;
    one = fault;
    struck = false;
    callsLeft = nth;
    hurriesFrom = 0;
    armed = &one;
}

void Hurry() {
    int64_t none = 0;
    hurriesFrom.compare_exchange_strong(none, SystemNow(CLOCK_MONOTONIC));
}

bool HasStruck() { return struck; }

std::string WhatMayWait() {
    const char *const call = std::exchange(mayWait, nullptr);
    return call != nullptr ? call : "";
}

const char *Complaint() {
    static char text[200];
    const long left[] = {blocks.exchange(0), descriptors.exchange(0), threads.exchange(0), mutexes.exchange(0),
                         conditions.exchange(0)};
    const int stranger = misused.exchange(-1);
    if (std::count(std::begin(left), std::end(left), 0) == std::ssize(left) && stranger == -1) return "";
    snprintf(text, sizeof text,
             "blocks %ld, descriptors %ld, threads %ld, mutexes %ld, conditions %ld; stranger %d", left[0], left[1],
             left[2], left[3], left[4], stranger);
    return text;
}

} // namespace torture

using namespace torture;

extern "C" {

void torture_perror(const char *) {} // would drown what the test tells
void *torture_malloc(size_t size) { return Fails("memory") ? nullptr : Counted(malloc(size)); }
void *torture_calloc(size_t n, size_t size) { return Fails("memory") ? nullptr : Counted(calloc(n, size)); }
void *torture_realloc(void *memory, size_t size) {
    if (Fails("memory")) return nullptr;
    return memory == nullptr ? Counted(malloc(size)) : realloc(memory, size);
}
void torture_free(void *memory) { free(Counted(memory, -1)); }
void *torture_new(size_t size, const std::nothrow_t &) {
    return Fails("memory") ? nullptr : Counted(operator new(size, std::nothrow));
}
void torture_delete(void *memory) { operator delete(Counted(memory, -1)); }
void torture_delete_sized(void *memory, size_t) { torture_delete(memory); }

int torture_socket(int domain, int type, int protocol) {
    return Fails("socket") ? -1 : Taken(socket(domain, type, protocol));
}
int torture_eventfd(unsigned value, int flags) { return Fails("eventfd") ? -1 : Taken(eventfd(value, flags)); }
int torture_timerfd_create(int clock, int flags) {
    return Fails("timer") ? -1 : Taken(timerfd_create(static_cast<clockid_t>(clock), flags));
}
int torture_timerfd_settime(int fd, int flags, const itimerspec *at, itimerspec *before) {
    if (atNextAlarm) std::exchange(atNextAlarm, nullptr)();
    itimerspec sooner = *at;
    if ((flags & TFD_TIMER_ABSTIME) != 0 && Nanoseconds(at->it_value) > 0) {
        const int64_t left = std::max<int64_t>(Nanoseconds(at->it_value) - Now(CLOCK_MONOTONIC), 0);
        sooner.it_value = Time(SystemNow(CLOCK_MONOTONIC) + left / Speed());
    }
    return timerfd_settime(Used(fd), flags, &sooner, before);
}
int torture_epoll_create1(int flags) { return Fails("epoll") ? -1 : Taken(epoll_create1(flags)); }
int torture_epoll_ctl(int epoll, int operation, int fd, epoll_event *event) {
    return Fails("watch") ? -1 : epoll_ctl(Used(epoll), operation, Used(fd), event);
}
int torture_epoll_wait(int epoll, epoll_event *events, int most, int timeoutMs) {
    if (Fails("watchwait")) return -1;
    return WaitMs(timeoutMs, [=](int ms) { return epoll_wait(Used(epoll), events, most, ms); });
}
int torture_close(int fd) {
    if (fd >= 0) owned[Used(fd)] = false, --descriptors;
    return close(fd);
}
int torture_shutdown(int fd, int how) { return shutdown(Used(fd), how); }
int torture_bind(int fd, const sockaddr *at, socklen_t n) { return Fails("bind") ? -1 : bind(Used(fd), at, n); }
int torture_connect(int fd, const sockaddr *to, socklen_t n) {
    NoteWait("connect", (fcntl(fd, F_GETFL) & (O_NONBLOCK | O_ACCMODE)) == O_RDWR);
    return Fails("connect") ? -1 : connect(Used(fd), to, n);
}
int torture_setsockopt(int fd, int level, int name, const void *value, socklen_t n) {
    if (Fails("setsockopt")) return -1;
    if (level != SOL_SOCKET || name != SO_RCVTIMEO) return setsockopt(Used(fd), level, name, value, n);
    timeval shorter = *static_cast<const timeval *>(value);
    shorter.tv_usec = std::max<int64_t>(shorter.tv_usec / Speed(), 1);
    return setsockopt(Used(fd), level, name, &shorter, n);
}
ssize_t torture_send(int fd, const void *bytes, size_t size, int flags) {
    NoteWait("send", (flags & MSG_DONTWAIT) == 0);
    return Transfer("send", fd, size, [=](size_t some) { return send(fd, bytes, some, flags); });
}
ssize_t torture_sendto(int fd, const void *bytes, size_t size, int flags, const sockaddr *to, socklen_t n) {
    return Transfer("sendto", fd, size, [=](size_t some) { return sendto(fd, bytes, some, flags, to, n); });
}
ssize_t torture_recv(int fd, void *bytes, size_t size, int flags) {
    NoteWait("recv", (flags & MSG_DONTWAIT) == 0 && !IsReady(fd, POLLIN));
    return Transfer("recv", fd, size, [=](size_t some) { return recv(fd, bytes, some, flags); });
}
ssize_t torture_recvfrom(int fd, void *bytes, size_t size, int flags, sockaddr *from, socklen_t *n) {
    return Transfer("recvfrom", fd, size, [=](size_t some) { return recvfrom(fd, bytes, some, flags, from, n); });
}
int torture_recvmmsg(int fd, mmsghdr *messages, unsigned count, int flags, timespec *limit) {
    Used(fd);
    const Fault *const fault = Strike("recvmmsg");
    if (fault != nullptr && fault->effect != kShort && fault->effect != kNothing) return -1;
    const int came = recvmmsg(fd, messages, count, flags, limit);
    for (int i = 0; fault != nullptr && i < came; ++i) // short ones: the rest never was
        messages[i].msg_len = fault->effect == kNothing ? 0 : std::min(messages[i].msg_len, 13U);
    return came;
}
ssize_t torture_read(int fd, void *bytes, size_t n) { return Fails("read") ? -1 : read(Used(fd), bytes, n); }
ssize_t torture_write(int fd, const void *bytes, size_t size) { return write(Used(fd), bytes, size); }
int torture_poll(pollfd *waits, nfds_t count, int timeoutMs) {
    for (nfds_t i = 0; i < count; ++i) Used(waits[i].fd);
    NoteWait("poll", timeoutMs != 0);
    if (const Fault *const fault = Strike("poll")) {
        for (nfds_t i = 0; i < count; ++i) waits[i].revents = 0;
        return fault->effect == kNothing ? 0 : -1;
    }
    return WaitMs(timeoutMs, [=](int ms) { return poll(waits, count, ms); });
}
int torture_clock_gettime(clockid_t clock, timespec *time) {
    if (atNextClock) std::exchange(atNextClock, nullptr)();
    *time = Time(Now(clock));
    return 0;
}
int torture_nanosleep(const timespec *time, timespec *rest) {
    NoteWait("nanosleep", true);
    if (atNextSleep) std::exchange(atNextSleep, nullptr)();
    const timespec shorter = Time(Nanoseconds(*time) / Speed());
    return Fails("sleep") ? -1 : nanosleep(&shorter, rest);
}
int torture_gethostname(char *name, size_t size) { return Fails("gethostname") ? -1 : gethostname(name, size); }

int torture_pthread_create(pthread_t *id, const pthread_attr_t *attributes, void *(*body)(void *), void *argument) {
    return Fails("thread") ? EAGAIN : (++threads, pthread_create(id, attributes, body, argument));
}
int torture_pthread_join(pthread_t id, void **value) { return --threads, pthread_join(id, value); }
int torture_pthread_detach(pthread_t id) { return --threads, pthread_detach(id); }
int torture_getaddrinfo(const char *host, const char *service, const addrinfo *hints, addrinfo **found) {
    const bool isName = (hints->ai_flags & AI_NUMERICHOST) == 0;
    NoteWait("getaddrinfo", isName);
    namesAsked += isName ? 1 : 0;
    while (isName && namesHang) usleep(1000);
    return getaddrinfo(host, service, hints, found);
}
int torture_swapcontext(ucontext_t *from, const ucontext_t *to) {
    NoteWait("a lock held over a switch", locksHeld != 0);
    return swapcontext(from, to);
}
int torture_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes) {
    return Fails("mutex") ? ENOMEM : (++mutexes, pthread_mutex_init(mutex, attributes));
}
int torture_pthread_mutex_destroy(pthread_mutex_t *mutex) { return --mutexes, pthread_mutex_destroy(mutex); }
int torture_pthread_mutex_lock(pthread_mutex_t *mutex) {
    const bool refuses = mutex == &rtsptap::gblRTSPClientListLock && Fails("lock");
    if (refuses || mutex == refused) refused = refuses ? mutex : nullptr;
    locksHeld += refuses ? 0 : 1;
    return refuses ? EINVAL : pthread_mutex_lock(mutex);
}
int torture_pthread_mutex_trylock(pthread_mutex_t *mutex) {
    const int result = pthread_mutex_trylock(mutex);
    locksHeld += result == 0 ? 1 : 0;
    return result;
}
int torture_pthread_mutex_unlock(pthread_mutex_t *mutex) {
    if (mutex == refused) return refused = nullptr, 0;
    --locksHeld;
    const int result = pthread_mutex_unlock(mutex);
    return mutex == &rtsptap::gblRTSPClientListLock && Fails("unlock") ? EPERM : result;
}
int torture_pthread_cond_init(pthread_cond_t *condition, const pthread_condattr_t *attributes) {
    return Fails("condition") ? -1 : (++conditions, pthread_cond_init(condition, attributes));
}
int torture_pthread_cond_destroy(pthread_cond_t *waits) { return --conditions, pthread_cond_destroy(waits); }
int torture_pthread_cond_signal(pthread_cond_t *waits) { return ++Signals(waits), pthread_cond_signal(waits); }
int torture_pthread_cond_broadcast(pthread_cond_t *waits) {
    return ++Signals(waits), pthread_cond_broadcast(waits);
}
int torture_pthread_cond_timedwait(pthread_cond_t *condition, pthread_mutex_t *mutex, const timespec *deadline) {
    if (const Fault *const fault = Strike("wait")) return std::max(fault->effect, 0);
    NoteWait("timedwait", true);
    return WaitOn(condition, mutex, CLOCK_REALTIME, deadline);
}
int torture_pthread_cond_clockwait(pthread_cond_t *condition, pthread_mutex_t *mutex, clockid_t clock,
                                   const timespec *deadline) {
    if (const Fault *const fault = Strike(clock == CLOCK_REALTIME ? "wait" : "replywait"))
        return std::max(fault->effect, 0);
    NoteWait("clockwait", true);
    return WaitOn(condition, mutex, clock, deadline);
}
} // extern "C"
