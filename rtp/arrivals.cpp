#include "rtp/arrivals.h"

#include "rtp/media_session.h"
#include "rtp/stream.h"

namespace rtsptap {
namespace {

void Begin(RTSPStreamInfo &stream, uint32_t ssrc, uint16_t number) {
    ArrivalWatch &watch = stream.watch;
    watch = {};
    watch.begun = true;
    watch.highest = number;
    watch.seen[0] = true;
    stream.remoteSsrc.store(ssrc, std::memory_order_relaxed);
}

// Reports and figures start anew with the first of the two packets.
void StartAnew(RTSPStreamInfo &stream, uint32_t ssrc, uint16_t number) {
    const auto first = static_cast<uint16_t>(number - 1);
    Begin(stream, ssrc, first);
    stream.lastSeqNum.store(first, std::memory_order_relaxed);
    stream.baseSeqNum.store(first, std::memory_order_relaxed);
    stream.cumulativeLost.store(0, std::memory_order_relaxed);
    stream.senderChanges.fetch_add(1, std::memory_order_release);
    int32_t left = RTSPTAP_SENDER_LEFT;
    stream.endedWhy.compare_exchange_strong(left, 0, std::memory_order_seq_cst);
    stream.session->dialect.Permits(Rule::kSenderRestart);
}

// Whether the number was there already; far behind the highest one nobody knows.
bool WasSeen(ArrivalWatch &watch, uint16_t number) {
    const auto ahead = static_cast<uint16_t>(number - watch.highest);
    const auto behind = static_cast<uint16_t>(-ahead);
    if (ahead == 0 || behind < kFarBehind) {
        const bool wasSeen = watch.seen[behind];
        watch.seen[behind] = true;
        return wasSeen;
    }
    if (ahead > UINT16_MAX / 2) return false;
    watch.seen <<= ahead;
    watch.seen[0] = true;
    watch.highest = number;
    return false;
}

bool IsFar(const ArrivalWatch &watch, uint16_t number) {
    const auto ahead = static_cast<uint16_t>(number - watch.highest);
    return ahead >= kFarAhead && static_cast<uint16_t>(-ahead) >= kFarBehind;
}

Sighting Refuse(RTSPStreamInfo &stream) {
    stream.watch.refused = true;
    stream.session->duplicatesDropped.fetch_add(1, std::memory_order_relaxed);
    return Sighting::kRefused;
}

// Two in sequence are believed. Before, a packet may be a stray one.
Sighting OnProbation(RTSPStreamInfo &stream, uint32_t ssrc, uint16_t number, bool dropsDuplicates) {
    ArrivalWatch &watch = stream.watch;
    const bool isSame = watch.onProbation && watch.newSsrc == ssrc;
    if (isSame && number == static_cast<uint16_t>(watch.newNext - 1) && dropsDuplicates) return Refuse(stream);
    if (isSame && number == watch.newNext) {
        StartAnew(stream, ssrc, number);
        WasSeen(watch, number);
        return Sighting::kInStream;
    }
    watch.onProbation = true;
    watch.newSsrc = ssrc;
    watch.newNext = static_cast<uint16_t>(number + 1);
    return Sighting::kAside;
}

// Kept: the first SSRC that is not 0 is the sender's, whatever comes.
Sighting NotePlainly(RTSPStreamInfo &stream, uint32_t ssrc) {
    stream.watch.begun = false;
    uint32_t sender = stream.remoteSsrc.load(std::memory_order_relaxed);
    if (sender == 0) stream.remoteSsrc.store(sender = ssrc, std::memory_order_relaxed);
    const bool isPlain = stream.statistics == nullptr && stream.protection == nullptr;
    if (sender != 0 && isPlain) stream.plainSsrc.store(sender, std::memory_order_seq_cst);
    if (stream.session->dropsDuplicates.load(std::memory_order_seq_cst) != 0) // by now
        stream.plainSsrc.store(kNobody, std::memory_order_relaxed);
    return Sighting::kInStream;
}

} // namespace

Sighting NoteArrival(RTSPStreamInfo &stream, uint32_t ssrc, uint16_t number) {
    const MediaSession &session = *stream.session;
    ArrivalWatch &watch = stream.watch;
    const bool restarts = session.dialect.IsOn(Rule::kSenderRestart);
    const bool dropsDuplicates = session.dropsDuplicates.load(std::memory_order_relaxed) != 0;
    if (!restarts && !dropsDuplicates) return NotePlainly(stream, ssrc);
    if (!watch.begun) {
        Begin(stream, ssrc, number);
        return Sighting::kInStream;
    }
    const bool isOther = ssrc != stream.remoteSsrc.load(std::memory_order_relaxed);
    if (restarts && (isOther || IsFar(watch, number))) return OnProbation(stream, ssrc, number, dropsDuplicates);
    if (isOther) return Sighting::kInStream;
    watch.onProbation = false;
    return WasSeen(watch, number) && dropsDuplicates ? Refuse(stream) : Sighting::kInStream;
}

} // namespace rtsptap
