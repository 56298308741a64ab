
#include "rtp/stream.h"

#include "platform/system.h"
#include "rtp/packet_queue.h"
#include "rtp/service_thread.h"
#include "rtp/udp_reception.h"
#include "rtsp/client/client.h"
#include "sdp/sdp_parser.h"

#include <cstdlib>
#include <new>
#include <utility>

namespace rtsptap {

namespace {

std::atomic<RTSPStreamInfo *> &TailLink(RTSPClient &client, RTSPStreamInfo *last) {
    std::atomic<RTSPStreamInfo *> *link = last != nullptr ? &last->next : &client.streamList;
    while (RTSPStreamInfo *stream = link->load(std::memory_order_relaxed)) link = &stream->next;
    return *link;
}

void FreeQueuedPackets(RTSPStreamInfo &stream) {
    RTPStreamData *packet = stream.packetListHead.load(std::memory_order_relaxed);
    while (packet != nullptr) {
        RTPStreamData *const next = packet->next;
        FreePacketRecord(packet);
        packet = next;
    }
    if (stream.deferredPacket != nullptr) FreePacketRecord(stream.deferredPacket);
}

void FreeRingAndPool(RTSPStreamInfo &stream) {
    DrainPacketPool(stream.pool);
    ReleaseRing(stream.ring);
}

// Without the threads nobody takes a record or receives any more, and with the queue empty no reader gets a packet.
void EndStream(RTSPStreamInfo &stream) {
    ReleaseSdpFields(stream.sdpFieldList);
    {
        const ScopedLock lock(stream.packetListLock);
        DropAllPackets(stream);
    }
    LetGoOfRing(stream);
}

} // namespace

RTSPStreamInfo *AppendStream(RTSPClient &client, RTSPStreamInfo *last) {
    auto *const stream = new (std::nothrow) RTSPStreamInfo{};
    if (stream == nullptr) return nullptr;
    stream->client = &client;
    TailLink(client, last).store(stream, std::memory_order_release);
    client.streamCount.fetch_add(1, std::memory_order_release);
    ++client.channelChanges;
    return stream;
}

void SetChannel(RTSPStreamInfo &stream, uint32_t channel) {
    stream.interleavedChannel = channel;
    ++stream.client->channelChanges;
}

void RetireEndedStreams(RTSPClient &client) {
    RTSPStreamInfo *const first = client.streamList;
    if (client.streamCount != 0 || first == nullptr) return;
    // In this order: who looks for a stream in the list, then among the retired ones, finds it.
    TailLink(client, first) = client.retiredStreams.load();
    client.retiredStreams = first;
    client.streamList = nullptr;
    ++client.channelChanges;
}

void EndStreams(RTSPClient &client) {
    for (RTSPStreamInfo *stream = client.retiredStreams; stream != nullptr; stream = stream->next) {
        const ScopedLock lock(stream->packetListLock);
        FreeDeferredPacket(*stream);
    }
    for (RTSPStreamInfo *stream = client.streamList; stream != nullptr; stream = stream->next) EndStream(*stream);
    RetireEndedStreams(client);
}

void FreeIdleRings(const RTSPClient &client) {
    const RTSPStreamInfo *const first = client.streamList;
    if (first == nullptr || IsServing(first->rtpThread)) return; // over TCP it serves all of them
    for (RTSPStreamInfo *stream = client.streamList; stream != nullptr; stream = stream->next)
        if (!IsServing(stream->rtpThread) && NothingInUse(*stream)) FreeRingAndPool(*stream);
}

void HoldRing(RTSPStreamInfo &stream) { stream.ringHolders.fetch_add(1, std::memory_order_relaxed); }

void LetGoOfRing(RTSPStreamInfo &stream) {
    if (stream.ringHolders.fetch_sub(1, std::memory_order_acq_rel) == 1) FreeRingAndPool(stream);
}

StreamLock CreateStreamLocks(RTSPStreamInfo &stream) {
    if (MutexInit(&stream.packetListLock) != RTSP_SUCCESS) return StreamLock::kPacketList;
    stream.locksMade = 1;
    if (MutexInit(&stream.signalLock) != RTSP_SUCCESS) return StreamLock::kSignal;
    stream.locksMade = 2;
    if (InitConditionVar(&stream.dataCondition) != RTSP_SUCCESS) return StreamLock::kCondition;
    stream.locksMade = 3;
    return StreamLock::kNone;
}

void DestroyStreamLocks(RTSPStreamInfo &stream) {
    const uint8_t made = std::exchange(stream.locksMade, uint8_t{0});
    if (made > 2) DestroyConditionVar(&stream.dataCondition);
    if (made > 1) MutexDestroy(&stream.signalLock);
    if (made > 0) MutexDestroy(&stream.packetListLock);
    stream.packetListLock = stream.signalLock =
        PTHREAD_MUTEX_INITIALIZER; // an abandoned stream's can still be taken
    stream.dataCondition = PTHREAD_COND_INITIALIZER;
}

void ReleaseStream(RTSPStreamInfo *stream) {
    ReleaseSdpFields(stream->sdpFieldList);
    FreeQueuedPackets(*stream);
    FreeRingAndPool(*stream);
    free(stream->description.fmtp);
    free(stream->description.sps);
    free(stream->description.pps);
    free(stream->description.aacConfig);
    DestroyStreamLocks(*stream);
    delete stream;
}

RTSPStreamInfo *FindStreamByNumber(const RTSPClient &client, int32_t number) {
    if (number < 1) return nullptr;
    RTSPStreamInfo *stream = client.streamList.load(std::memory_order_acquire);
    for (int32_t at = 1; stream != nullptr && at < number; ++at)
        stream = stream->next.load(std::memory_order_acquire);
    return stream;
}

RTSPStreamInfo *FindStreamByRing(const RTSPClient &client, const ReceiveRing *ring) {
    for (const auto *list : {&client.streamList, &client.retiredStreams})
        for (RTSPStreamInfo *stream = *list; stream != nullptr; stream = stream->next)
            if (&stream->ring == ring) return stream;
    return nullptr;
}

RTSPStreamInfo *FindStreamByCodec(const RTSPClient &client, int32_t codecType) {
    int32_t left = client.streamCount.load(std::memory_order_acquire);
    RTSPStreamInfo *stream = client.streamList.load(std::memory_order_acquire);
    for (; stream != nullptr && left > 0; --left) {
        if (stream->codecType.load(std::memory_order_acquire) == codecType) return stream;
        stream = stream->next.load(std::memory_order_acquire);
    }
    return nullptr;
}

bool IsCodecType(int32_t codecType) {
    return (codecType >= RTP_CODEC_H264 && codecType <= RTP_CODEC_MP2T) ||
           (codecType >= RTP_CODEC_PCMA && codecType <= RTP_CODEC_MPA);
}

} // namespace rtsptap
