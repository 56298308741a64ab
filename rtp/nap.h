// The nap of a reader by consent, before it looks for what has come. In its turn.
#pragma once

#include "rtp/media_session.h"
#include "rtp/receive_turn.h"
#include "rtp/serving.h"
#include "rtp/stream.h"

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

// Lets packets gather, so that one waking serves many, and serves them. A socket that stays silent is then waited
// for as ever, and the next packet is there at once.
inline Served ServeAfterNap(const Service &service, RTSPStreamInfo &stream) {
    const int64_t us = NapUs(*stream.session);
    if (us <= 0) return Served::kNothingLeft; // also without a latency
    const timespec nap{0, us * 1000};
    nanosleep(&nap, nullptr);
    return service.serve(*service.turn(stream)->thread, {});
}

} // namespace rtsptap
