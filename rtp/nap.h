// The nap of a reader by consent, before it looks for what has come. In its turn.
#pragma once

#include "platform/system.h"
#include "rtp/media_session.h"
#include "rtp/receive_turn.h"
#include "rtp/serving.h"
#include "rtp/stream.h"

#include <algorithm>
#include <cstdint>
#include <ctime>

namespace rtsptap {

// Whoever accepts a latency has said that packets may gather; a quarter of it is not noticed.
inline int64_t NapUs(const MediaSession &session) {
    const int64_t chosen = session.receiveNapUs.load(std::memory_order_relaxed);
    if (chosen >= 0) return chosen;
    const int32_t targetMs = session.targetLatency.load(std::memory_order_relaxed);
    return targetMs < kLongestNapUs / 250 ? targetMs * 250 : kLongestNapUs;
}

// Lets packets gather for as long as a nap takes, from when the reader was last served, so that one waking serves
// many, and serves them: who has used that time to work does not nap. A socket that stays silent is then waited for
// as ever, and the next packet is there at once.
inline Served ServeAfterNap(const Service &service, RTSPStreamInfo &stream) {
    constexpr int64_t kNsPerUs = 1000;
    const int64_t longest = NapUs(*stream.session) * kNsPerUs;
    if (longest <= 0) return Served::kNothingLeft; // also without a latency
    ReceiveTurn &turn = *service.turn(stream);
    const int64_t now = MonotonicNs();
    const int64_t end = (turn.servedNs == 0 ? now : turn.servedNs) + longest;
    const timespec nap{0, std::min(end - now, longest)};
    const bool sleptOut = end > now && nanosleep(&nap, nullptr) == 0;
    turn.servedNs = sleptOut ? end : MonotonicNs(); // late as it may have woken, the next one ends in time
    return service.serve(*turn.thread, {});
}

// The wait for the socket is over.
inline void BeginToGather(ReceiveTurn &turn) { turn.servedNs = MonotonicNs(); }

} // namespace rtsptap
