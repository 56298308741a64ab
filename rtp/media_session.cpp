#include "rtp/media_session.h"

#include "platform/printers.h"
#include "platform/system.h"
#include "rtp/interleaved/tending.h"
#include "rtp/packet_queue.h"
#include "rtp/protection.h"
#include "rtp/rtcp/true_reports.h"
#include "rtp/service_thread.h"
#include "rtp/serving.h"
#include "rtp/stream.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

namespace rtsptap {
namespace {

std::atomic<RTSPStreamInfo *> &TailLink(MediaSession &session, RTSPStreamInfo *last) {
    std::atomic<RTSPStreamInfo *> *link = last != nullptr ? &last->next : &session.streamList;
    while (RTSPStreamInfo *stream = link->load(std::memory_order_relaxed)) link = &stream->next;
    return *link;
}

void ReleaseStreams(RTSPStreamInfo *stream) {
    while (stream != nullptr) {
        RTSPStreamInfo *const next = stream->next;
        ReleaseStream(stream);
        stream = next;
    }
}

} // namespace

// ---- streams ----

RTSPStreamInfo *AppendStream(MediaSession &session, RTSPStreamInfo *last) {
    std::unique_ptr<StreamStatistics> statistics(IsWatched(session) ? new (std::nothrow) StreamStatistics{}
                                                                    : nullptr);
    auto *const stream = new (std::nothrow) RTSPStreamInfo{};
    if (stream == nullptr) return nullptr;
    if (IsWatched(session) && statistics == nullptr) {
        delete stream;
        return nullptr;
    }
    stream->statistics = statistics.release();
    stream->session = &session;
    stream->number = session.streamCount.load(std::memory_order_relaxed) + 1;
    stream->interruptsTold = session.interrupts.load(std::memory_order_acquire);
    session.tornDownStreams = 0;
    TailLink(session, last).store(stream, std::memory_order_release);
    session.streamCount.fetch_add(1, std::memory_order_release);
    ++session.channelChanges;
    return stream;
}

void SetChannel(RTSPStreamInfo &stream, uint32_t channel) {
    stream.interleavedChannel = channel;
    ++stream.session->channelChanges;
}

RTSPStreamInfo *FindStreamByNumber(const MediaSession &session, int32_t number) {
    if (number < 1) return nullptr;
    RTSPStreamInfo *stream = session.streamList.load(std::memory_order_acquire);
    for (int32_t at = 1; stream != nullptr && at < number; ++at)
        stream = stream->next.load(std::memory_order_acquire);
    return stream;
}

namespace {

enum class Which { kFirst, kLast };

inline RTSPStreamInfo *FindByCodec(const MediaSession &session, int32_t codecType, Which which) {
    RTSPStreamInfo *found = nullptr;
    int32_t left = session.streamCount.load(std::memory_order_acquire);
    RTSPStreamInfo *stream = session.streamList.load(std::memory_order_acquire);
    for (; stream != nullptr && left > 0; --left) {
        if (stream->codecType.load(std::memory_order_acquire) == codecType) found = stream;
        if (found != nullptr && which == Which::kFirst) break;
        stream = stream->next.load(std::memory_order_acquire);
    }
    return found;
}

} // namespace

RTSPStreamInfo *FindStreamByRing(const MediaSession &session, const ReceiveRing *ring) {
    const auto isIn = [ring](RTSPStreamInfo *stream) {
        while (stream != nullptr && &stream->ring != ring) stream = stream->next;
        return stream;
    };
    RTSPStreamInfo *const stream = isIn(session.streamList);
    return stream != nullptr ? stream : isIn(session.retiredStreams);
}

RTSPStreamInfo *FindStreamByCodec(const MediaSession &session, int32_t codecType) {
    return FindByCodec(session, codecType, Which::kFirst);
}

RTSPStreamInfo *FindLastStreamByCodec(const MediaSession &session, int32_t codecType) {
    return FindByCodec(session, codecType, Which::kLast);
}

// ---- threads and sockets ----

namespace {

bool ServesConnection(const StreamThread *thread) {
    return thread != nullptr && thread->services[0] == &kInterleavedService;
}

// Over UDP, beside its stream.
bool ServesConnectionToo(const StreamThread *thread) {
    return thread != nullptr && thread->services.back() == &kConnectionService;
}

// The thread would go on with a number that is a stranger's by then.
void StopThreadAndClose(RTSPStreamInfo &stream, int32_t &socket) {
    if (!ServesConnection(stream.thread)) StopStreamThread(stream.thread, socket);
    CloseSock(std::exchange(socket, -1));
}

bool ReceivesDatagrams(const StreamThread *thread) { return IsServing(thread) && !ServesConnection(thread); }

} // namespace

bool ConnectionIsServed(const MediaSession &session) {
    const RTSPStreamInfo *const first = session.streamList;
    if (first != nullptr && IsServing(first->thread) && ServesConnection(first->thread)) return true;
    if (!IsTended(session)) return false;
    const RTSPStreamInfo *stream = first;
    while (stream != nullptr && !(IsServing(stream->thread) && ServesConnectionToo(stream->thread)))
        stream = stream->next;
    return stream != nullptr;
}

bool IsServed(const MediaSession &session) {
    const RTSPStreamInfo *stream = session.streamList;
    while (stream != nullptr && stream->thread == nullptr) stream = stream->next;
    return stream != nullptr;
}

void WakeConnectionThread(const MediaSession &session) {
    for (RTSPStreamInfo *stream = session.streamList; stream != nullptr; stream = stream->next)
        if (ServesConnection(stream->thread) || ServesConnectionToo(stream->thread))
            WakeStreamThread(*stream->thread);
}

void ChooseStreamsForFrames(const MediaSession &session) {
    for (RTSPStreamInfo *stream = session.streamList; stream != nullptr; stream = stream->next)
        stream->takesFrames = !ReceivesDatagrams(stream->thread);
}

// Without a socket a thread would end at once and hold its descriptor until the session ends: a description with
// thousands of streams that nobody sets up must not use up the process's.
void StartUdpThread(RTSPStreamInfo &stream) {
    const Service *const rtp = stream.rtpSocket >= 0 ? &kRtpService : nullptr;
    const Service *const rtcp = stream.rtcpSocket >= 0 ? &kRtcpService : nullptr;
    if (rtp == nullptr && rtcp == nullptr) return;
    const Service *connection = nullptr;
    const bool hasConnection = stream.session->connection.socket >= 0 && IsTended(*stream.session);
    if (hasConnection && (ServesConnectionToo(stream.thread) || !ConnectionIsServed(*stream.session))) {
        stream.takesFrames = false; // what looks like one is nobody's
        connection = &kConnectionService;
    }
    StartStreamThread(stream.thread, stream, {rtp, rtcp, connection});
}

void StartInterleavedThread(MediaSession &session) {
    RTSPStreamInfo *const first = session.streamList;
    if (first == nullptr) return;
    ChooseStreamsForFrames(session);
    first->takesFrames = true; // it changes over: its thread is taken over from
    StartStreamThread(first->thread, *first,
                      {&kInterleavedService, IsTended(session) ? &kKeepAliveService : nullptr,
                       session.trueReports != 0 ? &kReportService : nullptr});
}

void StopInterleavedThread(const MediaSession &session, int socket) {
    for (RTSPStreamInfo *stream = session.streamList; stream != nullptr; stream = stream->next)
        if (ServesConnection(stream->thread)) StopStreamThread(stream->thread, socket);
}

void JoinEndedInterleavedThread(const MediaSession &session) {
    if (session.connection.turn.ended.load(std::memory_order_acquire)) StopInterleavedThread(session, -1);
}

void CloseConnectionAndStreams(MediaSession &session) {
    DebugPrint(kDebugEntry, "\tClosing RTSP Connection Socket \n");
    SayGoodbye(session);
    const int32_t rtspSocket = session.connection.socket;
    LeaveByteStream(session.connection.streams, rtspSocket);
    StopInterleavedThread(session, rtspSocket);
    for (RTSPStreamInfo *stream = session.streamList; stream != nullptr; stream = stream->next)
        if (ServesConnectionToo(stream->thread)) StopStreamThread(stream->thread, stream->rtpSocket);
    session.connection.socket = -1;
    EndByteStream(session.connection.streams, rtspSocket);
    CloseSock(rtspSocket);
    ForgetConnection(session.connection);
    for (RTSPStreamInfo *stream = session.streamList; stream != nullptr; stream = stream->next) {
        DebugPrint(kDebugEntry, "\tWaiting for Stream Receive Thread Completion\n");
        CloseRtpSocket(*stream);
        CloseRtcpSocket(*stream);
        EndReaderWaits(*stream); // also of one whose thread had ended before
        NoteEmpty(*stream);      // it is the program that ends it
    }
}

void CloseRtpSocket(RTSPStreamInfo &stream) { StopThreadAndClose(stream, stream.rtpSocket); }

void CloseRtcpSocket(RTSPStreamInfo &stream) { StopThreadAndClose(stream, stream.rtcpSocket); }

bool SizeReceiveBuffer(MediaSession &session, int socket, int byDefault) {
    const int asked = session.receiveBuffer != 0 ? static_cast<int>(session.receiveBuffer) : byDefault;
    AskForArrivals(session, socket);
    const bool isSet = asked == 0 || setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &asked, sizeof asked) == 0;
    int granted = 0; // twice what was granted: the system counts its own records (socket(7))
    socklen_t length = sizeof granted;
    if (getsockopt(socket, SOL_SOCKET, SO_RCVBUF, &granted, &length) == 0)
        session.receiveBufferGranted = granted / 2;
    return isSet;
}

// ---- settings of what is asked with every packet ----

void SetTargetLatency(MediaSession &session, int32_t ms) {
    session.targetLatency = ms == 0 && session.reorderWaitMs != 0 ? kOrderOnly : ms;
}

void SetReorderWait(MediaSession &session, int64_t ms) {
    session.reorderWaitMs = ms;
    SetTargetLatency(session, std::max(session.targetLatency.load(), 0));
    for (RTSPStreamInfo *stream = session.streamList; stream != nullptr; stream = stream->next) {
        const ScopedShortLock lock(stream->packetListLock);
        stream->order.begun = false; // it was not looked at meanwhile
    }
}

void SetDropsDuplicates(MediaSession &session, int64_t drops) {
    session.dropsDuplicates = drops;
    for (RTSPStreamInfo *stream = session.streamList; stream != nullptr; stream = stream->next)
        stream->plainSsrc = kNobody;
}

void SetThreads(MediaSession &session, int64_t threads) {
    if (session.loop.inGroup) LeaveGroup(session);
    MoveTo(session, threads == 0 ? session.loop.own : nullptr);
    session.threads = threads;
}

// ---- why nothing more comes ----

void EndReception(RTSPStreamInfo &stream, int32_t why) {
    int32_t nothing = 0;
    stream.endedWhy.compare_exchange_strong(nothing, why, std::memory_order_seq_cst);
    if (IsThreadless(*stream.session)) NoteReady(stream);
}

void EndReceptions(const MediaSession &session, int32_t why) {
    RTSPStreamInfo *stream = session.streamList.load(std::memory_order_acquire);
    for (; stream != nullptr; stream = stream->next.load(std::memory_order_acquire)) EndReception(*stream, why);
}

void BeginReception(RTSPStreamInfo &stream) {
    stream.endedWhy.store(0, std::memory_order_seq_cst);
    stream.endIsTold = false;
}

// ---- the end ----

void RetireEndedStreams(MediaSession &session) {
    RTSPStreamInfo *const first = session.streamList;
    if (session.streamCount != 0 || first == nullptr) return;
    // In this order: who looks for a stream in the list, then among the retired ones, finds it.
    TailLink(session, first) = session.retiredStreams.load();
    session.retiredStreams = first;
    session.streamList = nullptr;
    ++session.channelChanges;
}

void EndStreams(MediaSession &session) {
    session.doubtedGoodbyes = 0;
    for (RTSPStreamInfo *stream = session.retiredStreams; stream != nullptr; stream = stream->next) {
        const ScopedShortLock lock(stream->packetListLock);
        FreeDeferredPacket(*stream);
    }
    for (RTSPStreamInfo *stream = session.streamList; stream != nullptr; stream = stream->next) EndStream(*stream);
    RetireEndedStreams(session);
}

void ReleaseRetiredStreams(MediaSession &session) {
    std::atomic<RTSPStreamInfo *> *link = &session.retiredStreams;
    while (RTSPStreamInfo *const stream = *link) {
        if (stream->ring.storage != nullptr) {
            link = &stream->next;
            continue;
        }
        link->store(stream->next);
        ReleaseStream(stream);
    }
}

void FreeIdleRings(const MediaSession &session) {
    const RTSPStreamInfo *const first = session.streamList;
    if (first == nullptr || IsServing(first->thread)) return; // over TCP it serves all of them
    for (RTSPStreamInfo *stream = session.streamList; stream != nullptr; stream = stream->next)
        if (!IsServing(stream->thread) && NothingInUse(*stream)) FreeRingAndPool(*stream);
}

void ReleaseSession(MediaSession &session) {
    ReleaseLoop(session);
    ReleaseConnection(session.connection);
    ReleaseStreams(session.streamList);
    ReleaseStreams(session.retiredStreams);
    DropTable(std::exchange(session.protection, nullptr));
}

} // namespace rtsptap
