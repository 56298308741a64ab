// Threads, and the one signal the library cares about.
#include "platform/archive_names.h"
#include "rtsptap.h"

#include <csignal>

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

void HandleSignal(void) { std::signal(SIGPIPE, SIG_IGN); }

RTSPTAP_WEAK_NAME(ThreadCreate)
RTSPTAP_WEAK_NAME(ThreadExit)
RTSPTAP_WEAK_NAME(ThreadDetach)
RTSPTAP_WEAK_NAME(WaitForThreadCompletion)
RTSPTAP_WEAK_NAME(HandleSignal)
