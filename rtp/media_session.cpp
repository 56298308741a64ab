#include "rtp/media_session.h"

#include "platform/handle_table.h"
#include "platform/system.h"
#include "rtp/packet_queue.h"
#include "rtp/service_thread.h"
#include "rtp/stream.h"

#include <new>

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

MediaSession *LiveSession(intptr_t clientHandle) {
    return IsLiveHandle(clientHandle) ? reinterpret_cast<MediaSession *>(clientHandle) : nullptr;
}

RTSPStreamInfo *AppendStream(MediaSession &session, RTSPStreamInfo *last) {
    auto *const stream = new (std::nothrow) RTSPStreamInfo{};
    if (stream == nullptr) return nullptr;
    stream->session = &session;
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

RTSPStreamInfo *FindStreamByRing(const MediaSession &session, const ReceiveRing *ring) {
    for (const auto *list : {&session.streamList, &session.retiredStreams})
        for (RTSPStreamInfo *stream = *list; stream != nullptr; stream = stream->next)
            if (&stream->ring == ring) return stream;
    return nullptr;
}

RTSPStreamInfo *FindStreamByCodec(const MediaSession &session, int32_t codecType) {
    int32_t left = session.streamCount.load(std::memory_order_acquire);
    RTSPStreamInfo *stream = session.streamList.load(std::memory_order_acquire);
    for (; stream != nullptr && left > 0; --left) {
        if (stream->codecType.load(std::memory_order_acquire) == codecType) return stream;
        stream = stream->next.load(std::memory_order_acquire);
    }
    return nullptr;
}

RTSPStreamInfo *FindLastStreamByCodec(const MediaSession &session, int32_t codecType) {
    RTSPStreamInfo *found = nullptr;
    RTSPStreamInfo *stream = session.streamList.load(std::memory_order_acquire);
    for (int32_t left = session.streamCount.load(std::memory_order_acquire); stream != nullptr && left > 0;
         --left) {
        if (stream->codecType.load(std::memory_order_acquire) == codecType) found = stream;
        stream = stream->next.load(std::memory_order_acquire);
    }
    return found;
}

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
    for (RTSPStreamInfo *stream = session.retiredStreams; stream != nullptr; stream = stream->next) {
        const ScopedLock lock(stream->packetListLock);
        FreeDeferredPacket(*stream);
    }
    for (RTSPStreamInfo *stream = session.streamList; stream != nullptr; stream = stream->next) EndStream(*stream);
    RetireEndedStreams(session);
}

void FreeIdleRings(const MediaSession &session) {
    const RTSPStreamInfo *const first = session.streamList;
    if (first == nullptr || IsServing(first->rtpThread)) return; // over TCP it serves all of them
    for (RTSPStreamInfo *stream = session.streamList; stream != nullptr; stream = stream->next)
        if (!IsServing(stream->rtpThread) && NothingInUse(*stream)) FreeRingAndPool(*stream);
}

void ReleaseSession(MediaSession &session) {
    ReleaseConnection(session.connection);
    ReleaseStreams(session.streamList);
    ReleaseStreams(session.retiredStreams);
}

} // namespace rtsptap
