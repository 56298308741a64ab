// Mutexes and condition variables. A mutex call fails on any error of the system.
// Kept: the condition-variable calls fail only on negative results, which POSIX threads never give;
// callers rely on a wait that goes wrong looking like a wake-up.
#include "platform/lock.h"

#include "platform/archive_names.h"
#include "rtsptap.h"

#include <cerrno>
#include <cstdio>
#include <ctime>

namespace {

int ZeroOrFailure(int systemResult) { return systemResult == 0 ? RTSP_SUCCESS : RTSP_FAILURE; }

// The failure lines of condition variables carry no prefix.
int FailedLine(const char *line) {
    std::puts(line);
    return RTSP_FAILURE;
}

int WaitUntil(pthread_cond_t *condition, pthread_mutex_t *mutex, clockid_t clock, const timespec &deadline) {
    int result = -1;
    if (condition != nullptr && mutex != nullptr)
        result = pthread_cond_clockwait(condition, mutex, clock, &deadline);
    if (result == ETIMEDOUT) {
        RtpRtspErrorPrint("No data received in 5 sec ...\n");
        return RTSP_FAILURE;
    }
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
    std::printf("%s:", __func__);
    errno = result; // POSIX threads return their errors, perror reads them from errno
    std::perror("Err in pthread_mutex_init: ");
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

int rtsptap::WaitForConditionUntil(pthread_cond_t *condition, pthread_mutex_t *mutex, uint64_t deadlineMs) {
    return WaitUntil(condition, mutex, CLOCK_MONOTONIC,
                     {static_cast<time_t>(deadlineMs / 1000), static_cast<long>(deadlineMs % 1000) * 1000000});
}

int WaitForConditionVar(pthread_cond_t *condition, pthread_mutex_t *mutex) {
    constexpr time_t kWaitSeconds = rtsptap::kConditionWaitMs / 1000;
    uint32_t seconds = 0;
    uint32_t microseconds = 0;
    GetPresentTimeInSec(&seconds, &microseconds);
    return WaitUntil(condition, mutex, CLOCK_REALTIME, {time_t{seconds} + kWaitSeconds, long{microseconds} * 1000});
}

RTSPTAP_WEAK_NAME(MutexInit)
RTSPTAP_WEAK_NAME(MutexLock)
RTSPTAP_WEAK_NAME(MutexUnlock)
RTSPTAP_WEAK_NAME(MutexDestroy)
RTSPTAP_WEAK_NAME(InitConditionVar)
RTSPTAP_WEAK_NAME(SignalOnConditionVar)
RTSPTAP_WEAK_NAME(DestroyConditionVar)
RTSPTAP_WEAK_NAME(WaitForConditionVar)
