#include "rtp/delivery.h"

#include "platform/system.h"
#include "rtp/arrivals.h"
#include "rtp/packet_memory.h"

#include <algorithm>

namespace rtsptap {
namespace {

// Kept: underflowLimit alone decides. A queue that has reached targetLatency is held back all the same.
bool IsUnderflowing(const RTSPStreamInfo &stream, const RTPStreamData &head) {
    const int64_t underflow = stream.session->underflowLimit.load(std::memory_order_relaxed) * kTicksPerMs;
    return TimestampSpan(*stream.packetListTail, head) <= underflow;
}

bool IsHeldForLatency(RTSPStreamInfo &stream, const RTPStreamData &head) {
    if (stream.session->targetLatency.load(std::memory_order_relaxed) <= 0) return false;
    stream.buffering = IsUnderflowing(stream, head) ? 1 : 0;
    return stream.buffering == 1;
}

// When the first of those that wait has waited long enough: not all have come in their order.
uint64_t EndOfWait(const RTSPStreamInfo &stream, int64_t waitMs) {
    uint64_t earliest = UINT64_MAX;
    for (RTPStreamData *at = stream.packetListHead; at != nullptr; at = at->next)
        earliest = std::min(earliest, BlockOf(*at).arrivedMs);
    return earliest + static_cast<uint64_t>(waitMs);
}

// A number before the head's is missing and may still come.
bool IsBehindGap(const DeliveryOrder &order, const RTPHeader &head) {
    const auto missing = static_cast<uint16_t>(head.sequenceNumber - order.next);
    return order.begun && head.ssrc == order.ssrc && missing > 0 && missing < kFarAhead;
}

void Pass(DeliveryOrder &order, const RTPHeader &head) {
    order.waitEndsMs.store(0, std::memory_order_relaxed);
    if (IsPassed(order, head)) return; // it was shown before
    order.begun = true;
    order.ssrc = head.ssrc;
    order.next = static_cast<uint16_t>(head.sequenceNumber + 1);
}

bool IsHeldForOrder(RTSPStreamInfo &stream, const RTPStreamData &head) {
    DeliveryOrder &order = stream.order;
    const int64_t waitMs = stream.session->reorderWaitMs.load(std::memory_order_relaxed);
    if (waitMs == 0) return false; // of a client with a latency
    if (IsBehindGap(order, *head.rtpHeader) && stream.endedWhy.load(std::memory_order_relaxed) == 0) {
        uint64_t end = order.waitEndsMs.load(std::memory_order_relaxed);
        if (end == 0) order.waitEndsMs.store(end = EndOfWait(stream, waitMs), std::memory_order_relaxed);
        if (MonotonicMs() < end) return true;
    }
    Pass(order, *head.rtpHeader);
    return false;
}

} // namespace

bool IsPassed(const DeliveryOrder &order, const RTPHeader &header) {
    const auto behind = static_cast<uint16_t>(order.next - header.sequenceNumber);
    return order.begun && header.ssrc == order.ssrc && behind > 0 && behind < kFarBehind;
}

bool HasDeliverable(const RTSPStreamInfo &stream) {
    const RTPStreamData *const head = stream.packetListHead.load(std::memory_order_acquire);
    if (head == nullptr) return false;
    if (stream.session->targetLatency.load(std::memory_order_relaxed) > 0 && IsUnderflowing(stream, *head))
        return false;
    const uint64_t end = stream.order.waitEndsMs.load(std::memory_order_relaxed);
    return end <= MonotonicMs() || !IsBehindGap(stream.order, *head->rtpHeader);
}

bool HoldsBack(RTSPStreamInfo &stream, const RTPStreamData &head) {
    if (!IsHeldForLatency(stream, head)) return IsHeldForOrder(stream, head);
    stream.order.waitEndsMs.store(0, std::memory_order_relaxed);
    return true;
}

} // namespace rtsptap
