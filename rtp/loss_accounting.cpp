#include "rtp/loss_accounting.h"

#include "rtp/stream_record.h"

#include <cstdio>
#include <cstdlib>

namespace rtsptap {

namespace {

constexpr int32_t kLowestTotal = -20000; // read as signed; a total below it has wrapped
constexpr uint32_t kTotalAfterWrap = 100000;

// Kept: a last number of 0 switches the detection off for the next packet, and a step from 65535 to 0 is no
// gap; every other step that is not +1 is one, a late packet's and the one after it included.
bool IsGap(uint16_t last, uint16_t number) {
    const bool startsOver = (last == 0 || last == UINT16_MAX) && number == 0;
    return !startsOver && number != static_cast<uint16_t>(last + 1) && last != 0;
}

uint32_t AddToTotal(uint32_t gap) {
    uint32_t total = totalPktLost.load(std::memory_order_relaxed);
    uint32_t sum = 0;
    do {
        sum = total + gap;
        if (static_cast<int32_t>(sum) < kLowestTotal) sum = kTotalAfterWrap;
    } while (!totalPktLost.compare_exchange_weak(total, sum, std::memory_order_relaxed));
    return sum;
}

} // namespace

std::atomic<uint32_t> totalPktLost{0};

bool CountGap(RTSPStreamInfo &stream, uint16_t sequenceNumber) {
    const uint16_t last = stream.lastSeqNum.load(std::memory_order_relaxed);
    if (!IsGap(last, sequenceNumber)) return false;
    // Kept: the distance is taken without wrapping, so a step from 65535 to 1 counts 65535 packets.
    const int32_t gap = std::abs(sequenceNumber - (last + 1));
    const uint32_t total = AddToTotal(static_cast<uint32_t>(gap));
    std::printf("Pkt Lost/Total %d:%d \n", gap, static_cast<int32_t>(total));
    stream.cumulativeLost.store(total, std::memory_order_relaxed);
    return true;
}

void NoteSequenceNumber(RTSPStreamInfo &stream, uint16_t sequenceNumber) {
    if (stream.baseSeqNum.load(std::memory_order_relaxed) < 0)
        stream.baseSeqNum.store(sequenceNumber, std::memory_order_relaxed);
    stream.lastSeqNum.store(sequenceNumber, std::memory_order_relaxed);
}

} // namespace rtsptap
