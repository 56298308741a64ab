// Many clients without threads, served by one wait. The program's threads, one at a time.
#include "platform/printers.h"
#include "platform/system.h"
#include "rtp/delivery.h"
#include "rtp/loop/passes.h"
#include "rtp/loop/watch.h"
#include "rtp/media_session.h"
#include "rtp/numbered_streams.h"
#include "rtp/packet_queue.h"
#include "rtp/service_thread.h"
#include "rtp/serving.h"
#include "rtp/stream.h"
#include "rtsptap_extended.h"

#include <algorithm>
#include <array>
#include <climits>
#include <memory>
#include <new>
#include <span>
#include <sys/epoll.h>
#include <sys/eventfd.h>

using namespace rtsptap;

struct RTSPTapGroup {
    Watch watch;
};

namespace rtsptap {
namespace {

// ---- handing out ----

constexpr std::size_t kShare = 64; // packets of a stream before another one has its turn

void Fill(RTSPTapGroupPacket &record, const RTSPStreamInfo &stream, int32_t result, RTPStreamData *packet) {
    record = {HandleOf(*stream.session), stream.session->loop.context, stream.number, result, packet};
}

// Of the first stream where something is there, which then has to wait for the others if there may be more. How
// many records were filled; RTSP_NO_MEMORY.
int32_t HandOutOfFirst(Watch &watch, std::span<RTSPTapGroupPacket> records) {
    RTSPStreamInfo &stream = *watch.firstReady;
    std::array<RTPStreamData *, kShare> packets;
    const std::size_t share = std::min(records.size(), kShare);
    const int32_t end = EndOf(stream);
    const int32_t taken = TakeDeliverable(stream, std::span(packets).first(share), end != 0);
    if (taken < 0) return taken;
    NoteEmpty(stream);
    auto count = static_cast<std::size_t>(taken);
    for (std::size_t at = 0; at < count; ++at) Fill(records[at], stream, 0, packets[at]);
    if (count == share)
        NoteReady(stream);
    else if (end != 0 && !std::exchange(stream.endIsTold, true))
        Fill(records[count++], stream, end, nullptr);
    if (stream.session->reorderWaitMs.load(std::memory_order_relaxed) != 0) SettleDue(*stream.session);
    return static_cast<int32_t>(count);
}

int32_t HandOut(Watch &watch, std::span<RTSPTapGroupPacket> records) {
    std::size_t count = 0;
    while (count < records.size() && watch.firstReady != nullptr) {
        const int32_t more = HandOutOfFirst(watch, records.subspan(count));
        if (more < 0) return count > 0 ? static_cast<int32_t>(count) : more;
        count += static_cast<std::size_t>(more);
    }
    return static_cast<int32_t>(count);
}

// ---- receiving ----

constexpr std::size_t kMostEvents = 256;

// What a datagram of RTCP puts off is left in the list.
bool MayBeDueSooner(const Connection &connection) {
    const ReadAhead *const reader = connection.readAhead;
    return connection.hasRest.load(std::memory_order_relaxed) ||
           (reader != nullptr && (reader->replySinceMs != 0 || reader->stream != nullptr));
}

// True when it is of an operation, which the program has to take on, or somebody ends the wait.
bool ServeEvent(const Watch &watch, const epoll_event &event) {
    const WatchedSocket socket = SocketOf(event.data.u64);
    eventfd_t calls = 0;
    if (socket.isCall) return eventfd_read(watch.caller, &calls) == 0;
    if (socket.thread == nullptr) return socket.isOperation; // the timer: the clock tells
    MediaSession &session = *socket.thread->stream->session;
    const PrintsFor client(HandleOf(session));
    ServeNow(*socket.thread, socket.service, static_cast<short>(event.events));
    if (MayBeDueSooner(session.connection)) SettleDue(session);
    return false;
}

bool ServeDueSession(MediaSession &session, uint64_t nowMs) {
    const bool isCalled = OperationIsDue(session);
    ServeSession(session, 0);
    for (RTSPStreamInfo *stream = session.streamList; stream != nullptr; stream = stream->next) {
        const uint64_t end = stream->order.waitEndsMs.load(std::memory_order_relaxed);
        if (end != 0 && end <= nowMs) NoteReady(*stream);
    }
    if (session.loop.isShort)
        SettleSession(session);
    else
        SettleDue(session);
    return isCalled;
}

// Those that are due again at once have to wait for the next call.
bool ServeWhatIsDue(const Watch &watch) {
    bool isCalled = false;
    if (watch.firstDue == nullptr) return isCalled;
    const uint64_t now = MonotonicMs();
    for (std::size_t served = 0; served < kMostEvents; ++served) {
        MediaSession *const session = watch.firstDue;
        if (session == nullptr || session->loop.dueMs > now) break;
        isCalled = ServeDueSession(*session, now) || isCalled;
    }
    return isCalled;
}

// True when an operation of a member is to be taken on, or the wait to be ended.
bool WaitAndServe(const Watch &watch, uint64_t deadlineMs) {
    std::array<epoll_event, kMostEvents> events;
    uint64_t untilMs = deadlineMs;
    if (watch.firstDue != nullptr) untilMs = std::min(untilMs, watch.firstDue->loop.dueMs);
    const uint64_t now = deadlineMs != 0 ? MonotonicMs() : 0;
    const auto waitMs = static_cast<int>(std::min<uint64_t>(untilMs - std::min(now, untilMs), INT_MAX));
    const int came =
        epoll_wait(watch.epoll, events.data(), static_cast<int>(events.size()), deadlineMs != 0 ? waitMs : 0);
    bool isCalled = false;
    for (int at = 0; at < came; ++at)
        isCalled = ServeEvent(watch, events[static_cast<std::size_t>(at)]) || isCalled;
    return ServeWhatIsDue(watch) || isCalled;
}

int32_t TakeOfAll(Watch &watch, std::span<RTSPTapGroupPacket> records, int32_t timeoutMs) {
    int32_t count = HandOut(watch, records);
    const uint64_t deadlineMs =
        count == 0 && timeoutMs > 0 ? MonotonicMs() + static_cast<uint64_t>(timeoutMs) + 1 : 0;
    while (count == 0) {
        const bool isCalled = WaitAndServe(watch, deadlineMs);
        count = HandOut(watch, records);
        if (isCalled || deadlineMs == 0 || MonotonicMs() >= deadlineMs) break;
    }
    return count;
}

// ---- giving back: packets of one stream lie side by side ----

bool IsOfSameStream(const RTSPTapGroupPacket &record, const RTSPTapGroupPacket &other) {
    return record.client == other.client && record.stream == other.stream;
}

// How many of those at the front are given back together; `isRefused`: not all were taken there.
std::size_t GiveBackFirst(std::span<const RTSPTapGroupPacket> records, bool &isRefused) {
    std::array<RTPStreamData *, kShare> packets;
    std::size_t count = 0;
    int32_t given = 0;
    for (; count < records.size() && given < static_cast<int32_t>(kShare); ++count) {
        if (!IsOfSameStream(records[count], records.front())) break;
        if (records[count].packet != nullptr) packets[static_cast<std::size_t>(given++)] = records[count].packet;
    }
    const RTSPTapGroupPacket &first = records.front();
    if (given > 0 && RTSPTapFreePackets(first.client, first.stream, packets.data(), given) != RTSP_SUCCESS)
        isRefused = true;
    return count;
}

} // namespace
} // namespace rtsptap

RTSPTapGroup *RTSPTapGroupCreate(void) {
    const CallTrace trace(__func__);
    RTSPTapGroup *const none = nullptr;
    std::unique_ptr<RTSPTapGroup> group(new (std::nothrow) RTSPTapGroup{});
    if (group == nullptr) return trace.Fail(none, "EXIT : %s :Memory Allocation Failed\n");
    if (OpenWatch(group->watch) && OpenCaller(group->watch)) return group.release();
    CloseWatch(group->watch);
    return trace.Fail(none, "EXIT : %s :No descriptor is left\n");
}

void RTSPTapGroupDestroy(RTSPTapGroup *group) {
    const CallTrace trace(__func__);
    if (group == nullptr) return;
    while (group->watch.members != nullptr) LeaveGroup(*group->watch.members);
    CloseWatch(group->watch);
    delete group;
}

int32_t RTSPTapGroupAdd(RTSPTapGroup *group, intptr_t clientHandle, void *context) {
    const ClientTrace trace(__func__, clientHandle);
    MediaSession *const session = LiveSession(clientHandle);
    if (group == nullptr || session == nullptr)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid group or client handle\n");
    if (!IsThreadless(*session))
        return trace.Fail(RTSPTAP_HAS_THREADS, "EXIT : %s :Threads of the library receive for the client\n");
    if (session->loop.inGroup) return trace.Fail(RTSPTAP_IN_GROUP, "EXIT : %s :The client is in a group\n");
    LoopPlace &loop = session->loop;
    loop.inGroup = true;
    loop.context = context;
    loop.nextMember = std::exchange(group->watch.members, session);
    if (loop.nextMember != nullptr) loop.nextMember->loop.previousMember = session;
    MoveTo(*session, &group->watch);
    return RTSP_SUCCESS;
}

int32_t RTSPTapGroupRemove(RTSPTapGroup *group, intptr_t clientHandle) {
    const ClientTrace trace(__func__, clientHandle);
    MediaSession *const session = LiveSession(clientHandle);
    if (group == nullptr || session == nullptr)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid group or client handle\n");
    if (!session->loop.inGroup || session->loop.watch != &group->watch)
        return trace.Fail(RTSPTAP_NOT_IN_GROUP, "EXIT : %s :The client is not in the group\n");
    LeaveGroup(*session);
    return RTSP_SUCCESS;
}

int32_t RTSPTapGroupGetDescriptor(RTSPTapGroup *group) {
    const CallTrace trace(__func__);
    if (group == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid group\n");
    group->watch.isShown = true;
    SettleTimer(group->watch);
    return group->watch.epoll;
}

int32_t RTSPTapGroupNextDeadline(RTSPTapGroup *group, int64_t *ms) {
    const CallTrace trace(__func__);
    if (group == nullptr || ms == nullptr)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid group or pointer\n");
    const MediaSession *const first = group->watch.firstDue;
    const uint64_t now = MonotonicMs();
    *ms = first != nullptr ? static_cast<int64_t>(first->loop.dueMs - std::min(now, first->loop.dueMs)) : -1;
    if (group->watch.firstReady != nullptr) *ms = 0;
    return RTSP_SUCCESS;
}

int32_t RTSPTapGroupTakePackets(RTSPTapGroup *group, RTSPTapGroupPacket *packets, int32_t room, int32_t timeoutMs) {
    const CallTrace trace(__func__);
    if (group == nullptr || packets == nullptr || room < 1 || timeoutMs < 0)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid Input Arguments\n");
    const int32_t count = TakeOfAll(group->watch, {packets, static_cast<std::size_t>(room)}, timeoutMs);
    SettleTimer(group->watch);
    return count;
}

int32_t RTSPTapGroupInterrupt(RTSPTapGroup *group) {
    if (group == nullptr) return RTSP_INVALID_ARGUMENT;
    EndWait(group->watch);
    return RTSP_SUCCESS;
}

int32_t RTSPTapGroupFreePackets(const RTSPTapGroupPacket *packets, int32_t count) {
    const CallTrace trace(__func__);
    if (count < 0 || (packets == nullptr && count > 0))
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid Input Arguments\n");
    bool isRefused = false;
    std::span<const RTSPTapGroupPacket> left(packets, static_cast<std::size_t>(count));
    while (!left.empty()) left = left.subspan(GiveBackFirst(left, isRefused));
    if (!isRefused) return RTSP_SUCCESS;
    return trace.Fail(RTSPTAP_NOT_TAKEN, "EXIT : %s :A packet was not taken from there\n");
}
