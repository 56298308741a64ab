#include "rtp/stream.h"

#include "platform/system.h"
#include "rtp/media_session.h"
#include "rtp/packet_queue.h"
#include "rtp/protection.h"

#include <cstdlib>
#include <utility>

namespace rtsptap {
namespace {

void FreePackets(RTSPStreamInfo &stream) {
    RTPStreamData *packet = stream.packetListHead.load(std::memory_order_relaxed);
    while (packet != nullptr) {
        RTPStreamData *const next = packet->next;
        FreePacketRecord(packet);
        packet = next;
    }
    if (stream.deferredPacket != nullptr) FreePacketRecord(stream.deferredPacket);
    const uint8_t *end = nullptr;
    for (RTPStreamData *held = stream.held.Oldest(); held != nullptr; held = stream.held.Oldest()) {
        stream.held.Remove(held, end);
        FreePacketRecord(held);
    }
}

} // namespace

// ---- locks and lines ----

StreamLock CreateStreamLocks(RTSPStreamInfo &stream) {
    if (MutexInit(&stream.packetListLock.line) != RTSP_SUCCESS) return StreamLock::kPacketList;
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
    if (made > 0) MutexDestroy(&stream.packetListLock.line);
    stream.packetListLock.line = stream.signalLock =
        PTHREAD_MUTEX_INITIALIZER; // an abandoned stream's can still be taken
    stream.dataCondition = PTHREAD_COND_INITIALIZER;
}

void ReleaseSdpFields(SDPField *&head) {
    while (head != nullptr) {
        SDPField *const field = std::exchange(head, head->next);
        free(field->value);
        delete field;
    }
}

// ---- the end ----

// Without the threads nobody takes a record or receives any more, and with the queue empty no reader gets a packet.
void EndStream(RTSPStreamInfo &stream) {
    ReleaseSdpFields(stream.sdpFieldList);
    SetProtection(stream, nullptr);
    {
        const ScopedShortLock lock(stream.packetListLock);
        DropAllPackets(stream);
    }
    EndRingAndPool(stream);
}

void ReleaseStream(RTSPStreamInfo *stream) {
    ReleaseSdpFields(stream->sdpFieldList);
    SetProtection(*stream, nullptr);
    FreePackets(*stream);
    FreeRingAndPool(*stream);
    free(stream->description.fmtp);
    free(stream->description.sps);
    free(stream->description.pps);
    free(stream->description.aacConfig);
    free(stream->further.vps);
    free(stream->further.config);
    DestroyStreamLocks(*stream);
    delete stream->statistics;
    delete stream;
}

} // namespace rtsptap
