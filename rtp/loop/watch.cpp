#include "rtp/loop/watch.h"

#include "platform/fiber.h"
#include "platform/system.h"
#include "rtp/delivery.h"
#include "rtp/loop/passes.h"
#include "rtp/media_session.h"
#include "rtp/service_thread.h"
#include "rtp/serving.h"
#include "rtp/stream.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <span>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <utility>

namespace rtsptap {

// ---- events: a record lies at an even address, with room for the number of a service ----

static_assert(alignof(StreamThread) > kMostServed + 2);

namespace {

constexpr uint64_t kOperation = kMostServed + 1;
constexpr uint64_t kCall = kMostServed + 2;

uint64_t EventData(StreamThread &thread, std::size_t service) {
    return reinterpret_cast<uintptr_t>(&thread) | service;
}

} // namespace

WatchedSocket SocketOf(uint64_t eventData) {
    constexpr uint64_t kServiceBits = alignof(StreamThread) - 1;
    if (eventData == kOperation) return {.thread = nullptr, .service = 0, .isOperation = true};
    if (eventData == kCall) return {.thread = nullptr, .isCall = true};
    return {reinterpret_cast<StreamThread *>(static_cast<uintptr_t>(eventData & ~kServiceBits)),
            static_cast<std::size_t>(eventData & kServiceBits)};
}

bool OpenWatch(Watch &watch) {
    watch.epoll = epoll_create1(EPOLL_CLOEXEC);
    return watch.epoll >= 0;
}

void CloseWatch(Watch &watch) {
    for (const int descriptor :
         {std::exchange(watch.timer, -1), std::exchange(watch.caller, -1), std::exchange(watch.epoll, -1)})
        if (descriptor >= 0) close(descriptor);
    watch.timerMs = 0;
}

bool OpenCaller(Watch &watch) {
    watch.caller = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    epoll_event event = {.events = EPOLLIN, .data = {.u64 = kCall}};
    return watch.caller >= 0 && epoll_ctl(watch.epoll, EPOLL_CTL_ADD, watch.caller, &event) == 0;
}

void EndWait(const Watch &watch) {
    const int before = errno;
    eventfd_write(watch.caller, 1); // fails where it was full: then it is readable, too
    errno = before;
}

// ---- the timer ----

namespace {

constexpr uint64_t kAtOnce = 1; // long over

bool OpenTimer(Watch &watch) {
    if (watch.timer >= 0) return true;
    watch.timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    if (watch.timer < 0) return false;
    epoll_event event = {.events = EPOLLIN, .data = {.u64 = 0}};
    if (epoll_ctl(watch.epoll, EPOLL_CTL_ADD, watch.timer, &event) == 0) return true;
    close(std::exchange(watch.timer, -1));
    return false;
}

} // namespace

// Without a timer, for want of a descriptor, the next call tries again.
void SettleTimer(Watch &watch) {
    if (!watch.isShown) return;
    uint64_t wantedMs = watch.firstDue != nullptr ? watch.firstDue->loop.dueMs : 0;
    if (watch.firstReady != nullptr) wantedMs = kAtOnce;
    if (wantedMs == watch.timerMs || !OpenTimer(watch)) return;
    const timespec at = MonotonicTime(wantedMs); // all zero: none
    const itimerspec setting = {.it_interval = {}, .it_value = at};
    if (timerfd_settime(watch.timer, TFD_TIMER_ABSTIME, &setting, nullptr) == 0) watch.timerMs = wantedMs;
}

// ---- streams where something is there ----

void NoteReady(RTSPStreamInfo &stream) {
    Watch *const watch = stream.session->loop.watch;
    if (std::exchange(stream.isReady, true) || watch == nullptr) return;
    stream.nextReady = nullptr;
    stream.previousReady = std::exchange(watch->lastReady, &stream);
    (stream.previousReady != nullptr ? stream.previousReady->nextReady : watch->firstReady) = &stream;
}

void NoteEmpty(RTSPStreamInfo &stream) {
    Watch *const watch = stream.session->loop.watch;
    if (!std::exchange(stream.isReady, false) || watch == nullptr) return;
    (stream.previousReady != nullptr ? stream.previousReady->nextReady : watch->firstReady) = stream.nextReady;
    (stream.nextReady != nullptr ? stream.nextReady->previousReady : watch->lastReady) = stream.previousReady;
    stream.nextReady = stream.previousReady = nullptr;
}

// An end that has come meanwhile is told next time.
void NoteTaken(RTSPStreamInfo &stream, int32_t result, int32_t room) {
    MediaSession &session = *stream.session;
    if (!IsThreadless(session)) return; // nothing of this is anybody's
    if (session.loop.watch == nullptr && !stream.isReady) return;
    const bool wasCalledOff = result == RTSPTAP_INTERRUPTED;
    const bool hasPackets = stream.packetListHead.load(std::memory_order_relaxed) != nullptr;
    const bool mayHaveMore = hasPackets && (result == room || result < 0);
    const bool mayHaveEnded = (result > 0 || wasCalledOff) && EndOf(stream) != 0;
    if (!mayHaveMore && !mayHaveEnded) NoteEmpty(stream);
    if (session.loop.watch == nullptr) return;
    SettleDue(session);
    SettleTimer(*session.loop.watch);
}

// ---- sockets ----

namespace {

void Forget(Watch &watch, int &socket) {
    if (socket >= 0) epoll_ctl(watch.epoll, EPOLL_CTL_DEL, socket, nullptr);
    socket = -1;
}

} // namespace

void ForgetSockets(StreamThread &thread) {
    Watch *const watch = thread.stream->session->loop.watch;
    if (watch == nullptr) return;
    for (int &socket : thread.watchedSockets) Forget(*watch, socket);
}

void SettleSockets(StreamThread &thread) {
    LoopPlace &loop = thread.stream->session->loop;
    if (loop.watch == nullptr) return;
    const bool isActive = IsServing(&thread) && IsActive(thread);
    for (std::size_t at = 0; at < kMostServed; ++at) {
        const int wanted = AwaitedSocket(thread, at, isActive);
        int &socket = thread.watchedSockets[at];
        if (wanted == socket) continue;
        Forget(*loop.watch, socket);
        if (wanted < 0) continue;
        epoll_event event = {.events = EPOLLIN, .data = {.u64 = EventData(thread, at)}};
        if (epoll_ctl(loop.watch->epoll, EPOLL_CTL_ADD, wanted, &event) == 0)
            socket = wanted;
        else
            loop.isShort = true;
    }
}

void SettleSession(MediaSession &session) {
    if (session.loop.watch == nullptr) return;
    session.loop.isShort = false;
    for (RTSPStreamInfo *stream = session.streamList; stream != nullptr; stream = stream->next)
        if (stream->thread != nullptr && !stream->thread->hasThread) SettleSockets(*stream->thread);
    SettleDue(session);
    SettleTimer(*session.loop.watch);
}

// ---- what is due ----

namespace {

constexpr int kShortOfMemoryMs = 20;

// MonotonicMs when the pending operation goes on even if nothing comes, or its end is to be told; 0: never.
uint64_t OperationDue(const MediaSession &session) {
    const LoopPlace &loop = session.loop;
    if (loop.hasNews) return std::max(kAtOnce, loop.notBeforeMs);
    if (session.pending == nullptr) return 0;
    uint64_t due = AwaitedBy(*session.pending).deadlineMs;
    if (loop.isBlind) due = std::min<uint64_t>(due, MonotonicMs() + kShortOfMemoryMs);
    return due == kNoDeadline ? 0 : std::max(due, loop.notBeforeMs);
}

// MonotonicMs when the program has to come back; 0: no matter when.
uint64_t DueOf(const MediaSession &session) {
    int64_t ms = SessionDueIn(session);
    if (session.loop.isShort) ms = ms < 0 ? kShortOfMemoryMs : std::min<int64_t>(ms, kShortOfMemoryMs);
    uint64_t due = ms < 0 ? 0 : MonotonicMs() + static_cast<uint64_t>(ms);
    if (const uint64_t end = OperationDue(session); end != 0) due = due == 0 ? end : std::min(due, end);
    if (session.reorderWaitMs.load(std::memory_order_relaxed) == 0) return due;
    const RTSPStreamInfo *stream = session.streamList;
    for (; stream != nullptr; stream = stream->next) {
        const uint64_t end = stream->order.waitEndsMs.load(std::memory_order_relaxed);
        const bool isWaited = end != 0 && !stream->isReady && stream->packetListHead != nullptr;
        if (isWaited) due = due == 0 ? end : std::min(due, end);
    }
    return due;
}

void RemoveDue(MediaSession &session) {
    LoopPlace &loop = session.loop;
    if (loop.dueMs == 0) return;
    (loop.earlier != nullptr ? loop.earlier->loop.later : loop.watch->firstDue) = loop.later;
    (loop.later != nullptr ? loop.later->loop.earlier : loop.watch->lastDue) = loop.earlier;
    loop.earlier = loop.later = nullptr;
    loop.dueMs = 0;
}

// Looked for from the nearer end: most are either far away, as the others, or at once.
MediaSession *FindEarlier(const Watch &watch, uint64_t dueMs) {
    const bool fromFront = watch.firstDue != nullptr && dueMs < watch.lastDue->loop.dueMs &&
                           dueMs - std::min(dueMs, watch.firstDue->loop.dueMs) < watch.lastDue->loop.dueMs - dueMs;
    MediaSession *earlier = fromFront ? nullptr : watch.lastDue;
    while (!fromFront && earlier != nullptr && earlier->loop.dueMs > dueMs) earlier = earlier->loop.earlier;
    for (MediaSession *at = watch.firstDue; fromFront && at != nullptr && at->loop.dueMs <= dueMs;
         at = at->loop.later)
        earlier = at;
    return earlier;
}

void InsertDue(MediaSession &session, uint64_t dueMs) {
    LoopPlace &loop = session.loop;
    loop.earlier = FindEarlier(*loop.watch, dueMs);
    loop.later = loop.earlier != nullptr ? loop.earlier->loop.later : loop.watch->firstDue;
    (loop.earlier != nullptr ? loop.earlier->loop.later : loop.watch->firstDue) = &session;
    (loop.later != nullptr ? loop.later->loop.earlier : loop.watch->lastDue) = &session;
    loop.dueMs = dueMs;
}

} // namespace

// One that is put off stays where it is in the list until it would have been due: most are put off again and again.
void SettleDue(MediaSession &session) {
    LoopPlace &loop = session.loop;
    if (loop.watch == nullptr) return;
    const uint64_t dueMs = DueOf(session);
    if (loop.dueMs != 0 && dueMs >= loop.dueMs && loop.dueMs > MonotonicMs()) return;
    RemoveDue(session);
    if (dueMs != 0) InsertDue(session, dueMs);
}

// ---- an operation: in a descriptor of its own, as a socket of its may be in the watch already ----

namespace {

void ForgetAwaited(LoopPlace &loop) {
    if (loop.awaited < 0) return;
    epoll_ctl(loop.watch->epoll, EPOLL_CTL_DEL, loop.awaited, nullptr);
    close(std::exchange(loop.awaited, -1));
}

bool Gather(LoopPlace &loop, const Awaited &awaited) {
    if (awaited.count == 0) return true;
    loop.awaited = epoll_create1(EPOLL_CLOEXEC);
    if (loop.awaited < 0) return false;
    for (const pollfd &socket : std::span(awaited.sockets).first(awaited.count)) {
        epoll_event event = {.events = static_cast<uint32_t>(socket.events),
                             .data = {.u64 = 0}}; // as poll(2) has them
        if (socket.fd >= 0 && epoll_ctl(loop.awaited, EPOLL_CTL_ADD, socket.fd, &event) != 0) return false;
    }
    epoll_event event = {.events = EPOLLIN, .data = {.u64 = kOperation}};
    return epoll_ctl(loop.watch->epoll, EPOLL_CTL_ADD, loop.awaited, &event) == 0;
}

} // namespace

void SettlePending(MediaSession &session) {
    LoopPlace &loop = session.loop;
    loop.notBeforeMs = 0;
    if (loop.watch == nullptr) return;
    ForgetAwaited(loop);
    loop.isBlind = session.pending != nullptr && !Gather(loop, AwaitedBy(*session.pending));
    SettleDue(session);
    SettleTimer(*loop.watch);
}

bool OperationIsDue(MediaSession &session) {
    constexpr uint64_t kAgainMs = 10;
    const uint64_t due = OperationDue(session);
    const uint64_t now = MonotonicMs();
    if (due == 0 || now < due) return false;
    session.loop.notBeforeMs = now + kAgainMs;
    return true;
}

int64_t ComeBackIn(const MediaSession &session) {
    const RTSPStreamInfo *stream = session.streamList;
    for (; stream != nullptr; stream = stream->next) {
        const bool isLeft = session.loop.watch == nullptr && IsThreadless(session) && HasDeliverable(*stream);
        if (stream->isReady || isLeft) return 0;
    }
    const uint64_t dueMs = DueOf(session);
    const uint64_t now = MonotonicMs();
    if (dueMs == 0) return -1;
    return dueMs > now ? static_cast<int64_t>(dueMs - now) : 0;
}

// ---- who is in it ----

void MoveTo(MediaSession &session, Watch *watch) {
    RTSPStreamInfo *stream = session.streamList;
    for (; stream != nullptr; stream = stream->next) {
        if (stream->thread != nullptr) ForgetSockets(*stream->thread);
        NoteEmpty(*stream);
    }
    Watch *const before = session.loop.watch;
    ForgetAwaited(session.loop);
    if (before != nullptr) RemoveDue(session);
    session.loop.watch = watch;
    if (before != nullptr) SettleTimer(*before);
    if (watch == nullptr) return;
    for (stream = session.streamList; stream != nullptr; stream = stream->next) {
        const bool isOver = EndOf(*stream) != 0 && !stream->endIsTold;
        if (isOver || stream->packetListHead.load(std::memory_order_acquire) != nullptr) NoteReady(*stream);
    }
    SettleSession(session);
    SettlePending(session);
}

void LeaveGroup(MediaSession &session) {
    LoopPlace &loop = session.loop;
    Watch &group = *loop.watch;
    MoveTo(session, loop.own);
    (loop.previousMember != nullptr ? loop.previousMember->loop.nextMember : group.members) = loop.nextMember;
    if (loop.nextMember != nullptr) loop.nextMember->loop.previousMember = loop.previousMember;
    loop.nextMember = loop.previousMember = nullptr;
    loop.inGroup = false;
}

void ReleaseLoop(MediaSession &session) {
    if (session.loop.inGroup) LeaveGroup(session);
    MoveTo(session, nullptr);
    if (session.loop.own != nullptr) CloseWatch(*session.loop.own);
    delete std::exchange(session.loop.own, nullptr);
}

} // namespace rtsptap
