#include "rtp/stream_lifecycle.h"

#include "rtp/stream_record.h"
#include "rtsp/client/client_record.h"
#include "sdp/sdp_field.h"

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
    TailLink(client, first) = client.retiredStreams;
    client.retiredStreams = first;
    client.streamList = nullptr;
    ++client.channelChanges;
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
}

void ReleaseStream(RTSPStreamInfo *stream) {
    ReleaseSdpFields(stream->sdpFieldList);
    FreeQueuedPackets(*stream);
    DrainPacketPool(stream->pool);
    ReleaseRing(stream->ring);
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
