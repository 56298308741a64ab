// The exported wrappers over threads, mutexes, condition variables, time and sockets.
#include "platform/system.h"

#include "platform/archive_names.h"
#include "platform/printers.h"
#include "rtsptap.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <unistd.h>

using namespace rtsptap;

// ---- threads, and the one signal the library cares about ----

int ThreadCreate(pthread_t *threadId, void *(*startRoutine)(void *), void *argument) {
    if (threadId == nullptr || startRoutine == nullptr) return RTSP_FAILURE;
    return pthread_create(threadId, nullptr, startRoutine, argument) == 0 ? RTSP_SUCCESS : RTSP_FAILURE;
}

// Ending a thread unwinds its frames by force: this one holds nothing and must not become noexcept.
// Kept: the status is not handed on, but the address of a local: nobody joins for a value.
void ThreadExit(int /*status*/) {
    int exitValue = 0;
    pthread_exit(&exitValue);
}

int ThreadDetach(pthread_t threadId) {
    if (threadId == 0) return RTSP_FAILURE;
    return pthread_detach(threadId) == 0 ? RTSP_SUCCESS : RTSP_FAILURE;
}

int WaitForThreadCompletion(pthread_t threadId) {
    if (threadId == 0) return RTSP_FAILURE;
    return pthread_join(threadId, nullptr) == 0 ? RTSP_SUCCESS : RTSP_FAILURE;
}

namespace {

class ScopedSignalBlock {
public:
    ScopedSignalBlock() {
        sigset_t all;
        sigfillset(&all);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS}) sigdelset(&all, fault);
        pthread_sigmask(SIG_BLOCK, &all, &before_);
    }
    ~ScopedSignalBlock() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    ScopedSignalBlock(const ScopedSignalBlock &) = delete;
    ScopedSignalBlock &operator=(const ScopedSignalBlock &) = delete;

private:
    sigset_t before_;
};

} // namespace

// A program whose thread-local data leaves no room on a small stack gets the default one.
bool rtsptap::StartLibraryThread(pthread_t &thread, void *(*body)(void *), void *argument) {
    const ScopedSignalBlock inherited;
    pthread_attr_t small;
    if (pthread_attr_init(&small) == 0) {
        pthread_attr_setstacksize(&small, kLibraryStackBytes);
        const int result = pthread_create(&thread, &small, body, argument);
        pthread_attr_destroy(&small);
        if (result != EINVAL) return result == 0;
    }
    return ThreadCreate(&thread, body, argument) == RTSP_SUCCESS;
}

void HandleSignal(void) { std::signal(SIGPIPE, SIG_IGN); }

RTSPTAP_WEAK_NAME(ThreadCreate)
RTSPTAP_WEAK_NAME(ThreadExit)
RTSPTAP_WEAK_NAME(ThreadDetach)
RTSPTAP_WEAK_NAME(WaitForThreadCompletion)
RTSPTAP_WEAK_NAME(HandleSignal)

// ---- mutexes and condition variables ----

namespace {

int ZeroOrFailure(int systemResult) { return systemResult == 0 ? RTSP_SUCCESS : RTSP_FAILURE; }

// The failure lines of condition variables carry no prefix.
int FailedLine(const char *line) {
    rtsptap::PrintEvent("%s\n", line);
    return RTSP_FAILURE;
}

int NothingCame(uint64_t waitMs) {
    if (waitMs == rtsptap::kConditionWaitMs)
        RtpRtspErrorPrint("No data received in 5 sec ...\n");
    else
        RtpRtspErrorPrint("No data received in %llu ms ...\n", static_cast<unsigned long long>(waitMs));
    return RTSP_FAILURE;
}

int WaitUntil(pthread_cond_t *condition, pthread_mutex_t *mutex, clockid_t clock, const timespec &deadline,
              uint64_t waitMs) {
    int result = -1;
    if (condition != nullptr && mutex != nullptr)
        result = pthread_cond_clockwait(condition, mutex, clock, &deadline);
    if (result == ETIMEDOUT) return NothingCame(waitMs);
    if (result < 0) {
        RtpRtspErrorPrint("Unable to wait for condition variable\n");
        return RTSP_FAILURE;
    }
    return RTSP_SUCCESS;
}

} // namespace

int MutexInit(pthread_mutex_t *mutex) {
    const int result = mutex == nullptr ? EINVAL : pthread_mutex_init(mutex, nullptr);
    if (result == 0) return RTSP_SUCCESS;
    rtsptap::PrintEvent("%s:", __func__);
    rtsptap::PrintSystemError(result, "Err in pthread_mutex_init: "); // POSIX threads return their errors
    return RTSP_FAILURE;
}

int MutexLock(pthread_mutex_t *mutex) {
    return mutex == nullptr ? RTSP_FAILURE : ZeroOrFailure(pthread_mutex_lock(mutex));
}

int MutexUnlock(pthread_mutex_t *mutex) {
    return mutex == nullptr ? RTSP_FAILURE : ZeroOrFailure(pthread_mutex_unlock(mutex));
}

int MutexDestroy(pthread_mutex_t *mutex) {
    return mutex == nullptr ? RTSP_FAILURE : ZeroOrFailure(pthread_mutex_destroy(mutex));
}

int InitConditionVar(pthread_cond_t *condition) {
    const int result = condition == nullptr ? -1 : pthread_cond_init(condition, nullptr);
    return result < 0 ? FailedLine("Unable to initialize condition variable") : RTSP_SUCCESS;
}

int SignalOnConditionVar(pthread_cond_t *condition) {
    const int result = condition == nullptr ? -1 : pthread_cond_signal(condition);
    return result < 0 ? FailedLine("Unable to signal on condition variable") : RTSP_SUCCESS;
}

int DestroyConditionVar(pthread_cond_t *condition) {
    const int result = condition == nullptr ? -1 : pthread_cond_destroy(condition);
    return result < 0 ? FailedLine("Unable to destroy condition variable") : RTSP_SUCCESS;
}

int rtsptap::WaitForConditionUntil(pthread_cond_t *condition, pthread_mutex_t *mutex, uint64_t deadlineMs,
                                   uint64_t waitMs) {
    return WaitUntil(condition, mutex, CLOCK_MONOTONIC, MonotonicTime(deadlineMs), waitMs);
}

void rtsptap::WaitInLine(ShortLock &lock) {
    constexpr int kLooks = 100; // before the first nap
    constexpr timespec kNap{0, 50000};
    const ScopedLock first(lock.line);
    for (int looks = 1; lock.taken.exchange(true, std::memory_order_acquire); ++looks)
        if (looks >= kLooks) nanosleep(&kNap, nullptr);
}

int WaitForConditionVar(pthread_cond_t *condition, pthread_mutex_t *mutex) {
    constexpr time_t kWaitSeconds = rtsptap::kConditionWaitMs / 1000;
    uint32_t seconds = 0;
    uint32_t microseconds = 0;
    GetPresentTimeInSec(&seconds, &microseconds);
    return WaitUntil(condition, mutex, CLOCK_REALTIME, {time_t{seconds} + kWaitSeconds, long{microseconds} * 1000},
                     rtsptap::kConditionWaitMs);
}

RTSPTAP_WEAK_NAME(MutexInit)
RTSPTAP_WEAK_NAME(MutexLock)
RTSPTAP_WEAK_NAME(MutexUnlock)
RTSPTAP_WEAK_NAME(MutexDestroy)
RTSPTAP_WEAK_NAME(InitConditionVar)
RTSPTAP_WEAK_NAME(SignalOnConditionVar)
RTSPTAP_WEAK_NAME(DestroyConditionVar)
RTSPTAP_WEAK_NAME(WaitForConditionVar)

// ---- the wall clock, and sleeping ----

uint64_t GetTimeValue(void) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

int GetPresentTimeInSec(uint32_t *seconds, uint32_t *microseconds) {
    timespec now{};
    if (clock_gettime(CLOCK_REALTIME, &now) != 0) return RTSP_FAILURE;
    if (seconds != nullptr) *seconds = static_cast<uint32_t>(now.tv_sec);
    if (microseconds != nullptr) *microseconds = static_cast<uint32_t>(now.tv_nsec / 1000);
    return RTSP_SUCCESS;
}

int MSecDelay(uint32_t milliseconds) {
    const timespec delay{static_cast<time_t>(milliseconds / 1000),
                         static_cast<long>(milliseconds % 1000) * 1000000};
    return nanosleep(&delay, nullptr);
}

RTSPTAP_WEAK_NAME(GetTimeValue)
RTSPTAP_WEAK_NAME(GetPresentTimeInSec)
RTSPTAP_WEAK_NAME(MSecDelay)

// ---- receiving with retry, and closing ----

namespace {

int ReceiveFromStream(int sockfd, void *buf, int len) {
    int result = RTSP_FAILURE;
    int error = EINVAL; // a negative length
    while (len >= 0) {
        result = static_cast<int>(recv(sockfd, buf, static_cast<size_t>(len), 0));
        error = errno;
        if (result >= 0 || !rtsptap::IsInterrupted(error)) break;
        RtpRtspInfoPrint("TCP recv function error in linux: Err :%d Retval: %d \n", error, result);
        rtsptap::PrintSystemError(error, nullptr);
    }
    errno = error;
    return result;
}

void PrintNothingReceived(int result) {
    const int error = errno;
    if (result == 0) RtpRtspInfoPrint("Connection was closed by server\n");
    if (result < 0) RtpRtspInfoPrint("Connection error %d\n", result);
    errno = error;
}

} // namespace

// Kept: 29 (ESPIPE) is retried like an interruption.
bool rtsptap::IsInterrupted(int error) { return error == EINTR || error == ESPIPE; }

int rtsptap::ReceiveDatagram(int sockfd, void *buf, int len, int flags, sockaddr *srcAddr, socklen_t *srcAddrLen) {
    if (len < 0) {
        errno = EINVAL;
        return RTSP_FAILURE;
    }
    // MSG_TRUNC: the datagram's own size, also when it does not fit.
    const auto result =
        static_cast<int>(recvfrom(sockfd, buf, static_cast<size_t>(len), MSG_TRUNC | flags, srcAddr, srcAddrLen));
    if (result > len) TellLongDatagram(result, len);
    return result;
}

void rtsptap::TellLongDatagram(int received, int len) {
    RtpRtspInfoPrint("Received data packet is greater than MTU size so changing MTU size; "
                     "retValue:%d, dataSize:%d\n",
                     received, len);
}

bool rtsptap::LimitReceiveWait(int socket, int ms) {
    const timeval limit{ms / 1000, ms % 1000 * 1000};
    return setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0;
}

namespace {

int ReceiveOne(int sockfd, rtsptap::DatagramPlace &place, int flags) {
    place.received =
        static_cast<int>(recvfrom(sockfd, place.bytes, place.size, MSG_TRUNC | flags, nullptr, nullptr));
    return place.received < 0 ? RTSP_FAILURE : 1;
}

} // namespace

namespace {

struct Messages {
    mmsghdr headers[rtsptap::kMostDatagrams]; // not cleared: few are used
    iovec parts[rtsptap::kMostDatagrams][2];
};

[[gnu::always_inline]] inline void PointAt(Messages &messages, std::span<const rtsptap::DatagramPlace> places) {
    for (std::size_t i = 0; i < places.size(); ++i) {
        messages.parts[i][0] = {places[i].bytes, places[i].size};
        messages.parts[i][1] = {places[i].spill, places[i].spillSize};
        messages.headers[i] = {};
        messages.headers[i].msg_hdr.msg_iov = messages.parts[i];
        messages.headers[i].msg_hdr.msg_iovlen = places[i].spillSize > 0 ? 2 : 1;
    }
}

} // namespace

int rtsptap::ReceiveDatagrams(int sockfd, std::span<DatagramPlace> places, int flags) {
    if (places.size() == 1) return ReceiveOne(sockfd, places.front(), flags);
    Messages batch;
    PointAt(batch, places);
    mmsghdr *const messages = batch.headers;
    const int count = recvmmsg(sockfd, messages, static_cast<unsigned>(places.size()),
                               MSG_TRUNC | MSG_WAITFORONE | flags, nullptr);
    for (int i = 0; i < count; ++i)
        places[static_cast<std::size_t>(i)].received = static_cast<int>(messages[i].msg_len);
    return count;
}

// ---- when datagrams came ----

namespace {

// Room for both, aligned as their headers are.
union ArrivalMessages {
    cmsghdr aligned;
    char bytes[CMSG_SPACE(sizeof(timespec)) + CMSG_SPACE(sizeof(uint32_t))];
};

rtsptap::DatagramArrival ReadArrival(msghdr &header) {
    rtsptap::DatagramArrival arrival = {};
    for (cmsghdr *at = CMSG_FIRSTHDR(&header); at != nullptr; at = CMSG_NXTHDR(&header, at)) {
        timespec time = {};
        if (at->cmsg_level != SOL_SOCKET) continue;
        if (at->cmsg_type == SCM_TIMESTAMPNS) memcpy(&time, CMSG_DATA(at), sizeof time);
        if (at->cmsg_type == SCM_TIMESTAMPNS) arrival.ns = int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
        if (at->cmsg_type == SO_RXQ_OVFL) memcpy(&arrival.drops, CMSG_DATA(at), sizeof arrival.drops);
    }
    return arrival;
}

} // namespace

void rtsptap::TellArrivals(int socket) {
    const int on = 1;
    setsockopt(socket, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
    setsockopt(socket, SOL_SOCKET, SO_RXQ_OVFL, &on, sizeof on);
}

int rtsptap::ReceiveDatagrams(int sockfd, std::span<DatagramPlace> places, DatagramArrival *arrivals, int flags) {
    Messages batch;
    ArrivalMessages room[kMostDatagrams];
    PointAt(batch, places);
    for (std::size_t i = 0; i < places.size(); ++i) {
        batch.headers[i].msg_hdr.msg_control = &room[i];
        batch.headers[i].msg_hdr.msg_controllen = sizeof room[i];
    }
    int count = 0;
    if (places.size() == 1) { // where the system takes no batches
        const ssize_t length = recvmsg(sockfd, &batch.headers[0].msg_hdr, MSG_TRUNC | flags);
        batch.headers[0].msg_len = static_cast<unsigned>(length);
        count = length < 0 ? RTSP_FAILURE : 1;
    } else {
        count = recvmmsg(sockfd, batch.headers, static_cast<unsigned>(places.size()),
                         MSG_TRUNC | MSG_WAITFORONE | flags, nullptr);
    }
    for (int i = 0; i < count; ++i) {
        places[static_cast<std::size_t>(i)].received = static_cast<int>(batch.headers[i].msg_len);
        arrivals[i] = ReadArrival(batch.headers[i].msg_hdr);
    }
    return count;
}

int UDPSockRecv(int sockfd, void *buf, int len, struct sockaddr *srcAddr, socklen_t *srcAddrLen) {
    for (;;) {
        const int result = rtsptap::ReceiveDatagram(sockfd, buf, len, 0, srcAddr, srcAddrLen);
        const int error = errno;
        if (result >= 0 || !rtsptap::IsInterrupted(error)) return result;
        RtpRtspInfoPrint("UDP recv function error in linux: Err :%d Retval: %d \n", error, result);
        rtsptap::PrintSystemError(error, nullptr);
    }
}

int rtsptap::ReceiveBytes(int sockfd, void *buf, int len, int flags) {
    const auto result = static_cast<int>(recv(sockfd, buf, static_cast<size_t>(len), flags));
    if (result >= 0 || (errno != EAGAIN && !IsInterrupted(errno))) PrintNothingReceived(result);
    return result;
}

int TCPSockRecv(int sockfd, void *buf, int len) {
    const int result = ReceiveFromStream(sockfd, buf, len);
    PrintNothingReceived(result);
    return result;
}

void CloseSock(int fd) {
    if (fd == -1) return;
    shutdown(fd, SHUT_RDWR); // wakes a thread that is blocked on it, which close alone does not
    close(fd);
}

int CloseServerSock(int fd) {
    CloseSock(fd);
    return RTSP_SUCCESS;
}

RTSPTAP_WEAK_NAME(UDPSockRecv)
RTSPTAP_WEAK_NAME(TCPSockRecv)
RTSPTAP_WEAK_NAME(CloseSock)
RTSPTAP_WEAK_NAME(CloseServerSock)
