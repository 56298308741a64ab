#include "rtp/service_thread.h"

#include "platform/printers.h"
#include "platform/system.h"
#include "rtp/loop/watch.h"
#include "rtp/media_session.h"
#include "rtp/reader_watch.h"
#include "rtp/serving.h"
#include "rtp/stream.h"

#include <cerrno>
#include <memory>
#include <new>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

namespace rtsptap {

namespace {

struct StreamThreadDeleter {
    void operator()(StreamThread *thread) const {
        if (thread->wake >= 0) close(thread->wake);
        if (thread->isWatched) ReleaseReaderWatch();
        delete thread;
    }
};
using StreamThreadPtr = std::unique_ptr<StreamThread, StreamThreadDeleter>;

// Ends and frees the thread that served before; what it left in the stream and session is ours from here on.
void TakeOver(StreamThread &thread) {
    if (const StreamThreadPtr predecessor(thread.predecessor); predecessor != nullptr) {
        predecessor->yield.store(true, std::memory_order_release);
        WakeStreamThread(*predecessor);
        WaitForThreadCompletion(predecessor->handle);
    }
    thread.predecessor = nullptr;
    thread.tookOver.store(true, std::memory_order_release);
    thread.tookOver.notify_all();
}

void RunBody(StreamThread &thread) {
    TakeOver(thread);
    RunServing(thread);
    thread.ended.store(true, std::memory_order_release);
}

StreamThreadPtr CreateRecord(RTSPStreamInfo &stream, const Services &services) {
    StreamThreadPtr thread(new (std::nothrow) StreamThread{});
    if (thread == nullptr) return nullptr;
    thread->stream = &stream;
    thread->services = services;
    while (thread->served < kMostServed && (thread->served < 2 || services[thread->served] != nullptr))
        ++thread->served;
    thread->dataProto = stream.session->dataProto;
    return thread;
}

StreamThreadPtr CreateThreadRecord(RTSPStreamInfo &stream, const Services &services) {
    StreamThreadPtr thread = CreateRecord(stream, services);
    if (thread == nullptr) return nullptr;
    thread->wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (thread->wake < 0) return nullptr;
    thread->isWatched = NeedReaderWatch();
    return thread->isWatched ? std::move(thread) : nullptr;
}

// Kept: PLAY succeeds all the same. Repeated, it starts what is missing.
void TellWhyNotStarted(int error) {
    errno = error;
    RtpRtspErrorPrint("EXIT : StartStreamThread : A receive thread can not be started: %m\n");
}

// As a hand-over between threads, at once.
void StartWithoutThread(StreamThread *&slot, RTSPStreamInfo &stream, const Services &services) {
    StreamThreadPtr record = CreateRecord(stream, services);
    if (record == nullptr) return TellWhyNotStarted(ENOMEM);
    record->hasThread = false;
    const StreamThreadPtr predecessor(std::exchange(slot, record.release()));
    if (predecessor != nullptr) {
        predecessor->yield = true;
        ForgetSockets(*predecessor);
        EndServing(*predecessor);
    }
    BeginServing(*slot);
}

} // namespace

// The outermost frame of every library thread. It holds nothing when it leaves through ThreadExit.
extern "C" {
static void *StreamThreadMain(void *argument) {
    auto &thread = *static_cast<StreamThread *>(argument);
    gblPrintsFor = HandleOf(*thread.stream->session); // as long as it lives
    RunBody(thread);
    ThreadExit(RTSP_FAILURE);
}
}

bool IsServing(const StreamThread *thread) {
    return thread != nullptr && !thread->ended.load(std::memory_order_acquire);
}

void StartStreamThread(StreamThread *&slot, RTSPStreamInfo &stream, const Services &services) {
    if (IsThreadless(*stream.session)) return StartWithoutThread(slot, stream, services);
    if (slot != nullptr) slot->tookOver.wait(false, std::memory_order_acquire);
    StreamThreadPtr thread = CreateThreadRecord(stream, services);
    if (thread == nullptr) return TellWhyNotStarted(errno);
    thread->predecessor = slot;
    if (!StartLibraryThread(thread->handle, StreamThreadMain, thread.get())) return TellWhyNotStarted(EAGAIN);
    slot = thread.release();
}

void WakeStreamThread(const StreamThread &thread) {
    const uint64_t one = 1;
    if (thread.hasThread && write(thread.wake, &one, sizeof one) < 0)
        DebugPrint(kDebugEntry, "\tthe wake-up is already set\n");
}

void DrainWake(int wake) {
    uint64_t count = 0;
    while (read(wake, &count, sizeof count) < 0 && errno == EINTR) {
    }
}

void StopStreamThread(StreamThread *&slot, int socket) {
    const StreamThreadPtr thread(slot);
    slot = nullptr;
    if (thread == nullptr) return;
    DebugPrint(kDebugEntry, "\tStopping Thread by closing the socket\n");
    thread->stop.store(true, std::memory_order_release);
    if (!thread->hasThread) ForgetSockets(*thread);
    if (socket >= 0) shutdown(socket, SHUT_RDWR);
    if (!thread->hasThread) return EndServing(*thread);
    WakeStreamThread(*thread);
    WaitForThreadCompletion(thread->handle);
}

} // namespace rtsptap
