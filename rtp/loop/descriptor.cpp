// What a program's loop asks of a client without threads. Its threads, one at a time.
#include "platform/printers.h"
#include "rtp/loop/passes.h"
#include "rtp/loop/watch.h"
#include "rtp/media_session.h"
#include "rtsptap_extended.h"

#include <algorithm>
#include <memory>
#include <new>

using namespace rtsptap;

namespace {

constexpr int64_t kLookMs = 10; // at an operation of a client with threads: no descriptor tells

int32_t OpenOwnWatch(const CallTrace &trace, MediaSession &session) {
    std::unique_ptr<Watch> watch(new (std::nothrow) Watch{});
    if (watch == nullptr) return trace.Fail(RTSP_NO_MEMORY, "EXIT : %s :Memory Allocation Failed\n");
    if (!OpenWatch(*watch)) return trace.Fail(RTSP_SOCKET_FAILED, "EXIT : %s :No descriptor is left\n");
    watch->isShown = true;
    session.loop.own = watch.release();
    if (!session.loop.inGroup) MoveTo(session, session.loop.own);
    return RTSP_SUCCESS;
}

} // namespace

int32_t RTSPTapGetDescriptor(intptr_t clientHandle) {
    const ClientTrace trace(__func__, clientHandle);
    MediaSession *const session = LiveSession(clientHandle);
    if (session == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid client handle\n");
    if (!IsThreadless(*session))
        return trace.Fail(RTSPTAP_HAS_THREADS, "EXIT : %s :Threads of the library receive for the client\n");
    if (session->loop.own == nullptr)
        if (const int32_t result = OpenOwnWatch(trace, *session); result != RTSP_SUCCESS) return result;
    return session->loop.own->epoll;
}

int32_t RTSPTapNextDeadline(intptr_t clientHandle, int64_t *ms) {
    const ClientTrace trace(__func__, clientHandle);
    const MediaSession *const session = LiveSession(clientHandle);
    if (session == nullptr || ms == nullptr)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid client handle or pointer\n");
    const bool isUnderWay = session->pending != nullptr || session->loop.hasNews;
    *ms = IsThreadless(*session) || isUnderWay ? ComeBackIn(*session) : -1;
    if (isUnderWay && !IsThreadless(*session)) *ms = *ms < 0 ? kLookMs : std::min(*ms, kLookMs);
    return RTSP_SUCCESS;
}
