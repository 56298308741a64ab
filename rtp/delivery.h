// What may be handed out of a stream's queue now, and what calls a reader off. The application's readers.
#pragma once

#include "rtp/media_session.h"
#include "rtp/packet_queue.h"
#include "rtp/stream.h"

namespace rtsptap {

// Whether latency settings or a missing packet hold the head back; else it counts as handed out. The caller holds
// packetListLock.
bool HoldsBack(RTSPStreamInfo &stream, const RTPStreamData &head);

// Whether a packet might be handed out now, or is at least to be looked at. Leaves all as it is; of a session
// without threads.
bool HasDeliverable(const RTSPStreamInfo &stream);

inline bool IsHeldBack(RTSPStreamInfo &stream, const RTPStreamData &head) {
    return stream.session->targetLatency.load(std::memory_order_relaxed) != 0 && HoldsBack(stream, head);
}

// What came later than others that were handed out in spite of it. The caller holds packetListLock.
bool IsPassed(const DeliveryOrder &order, const RTPHeader &header);

// The packet that may be handed out now, or null; `isOver`: nothing is held back any more. The caller holds
// packetListLock.
inline RTPStreamData *DeliverableHead(RTSPStreamInfo &stream, bool isOver = false) {
    if (stream.deferredPacket != nullptr) FreeDeferredPacket(stream);
    RTPStreamData *const head = stream.packetListHead.load(std::memory_order_relaxed);
    return head == nullptr || (!isOver && IsHeldBack(stream, *head)) ? nullptr : head;
}

// The same, taken out of the queue.
inline RTPStreamData *TakeDeliverableHead(RTSPStreamInfo &stream, bool isOver = false) {
    RTPStreamData *const head = DeliverableHead(stream, isOver);
    if (head == nullptr) return nullptr;
    if (head == stream.peekedPacket) stream.peekedPacket = nullptr;
    return TakeHead(stream);
}

// A reader found its stream just before the session ended.
inline bool SessionIsOver(const MediaSession &session) {
    return session.streamCount.load(std::memory_order_seq_cst) == 0;
}

// Why nothing more comes, a code of RTSPTapResult, or 0.
inline int32_t EndOf(const RTSPStreamInfo &stream) {
    const int32_t why = stream.endedWhy.load(std::memory_order_seq_cst);
    return why == 0 && SessionIsOver(*stream.session) ? RTSPTAP_TORN_DOWN : why;
}

// Somebody has interrupted the client, and the stream's reader has not been told.
inline bool InterruptIsDue(const RTSPStreamInfo &stream) {
    return stream.session->interrupts.load(std::memory_order_acquire) !=
           stream.interruptsTold.load(std::memory_order_relaxed);
}

// A reader that names its stream by number is not to wait on.
inline bool IsCalledOff(const RTSPStreamInfo &stream) { return InterruptIsDue(stream) || EndOf(stream) != 0; }

} // namespace rtsptap
