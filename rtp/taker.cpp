// The turn of a reader that names its stream by number.
#include "platform/system.h"
#include "rtp/delivery.h"
#include "rtp/nap.h"
#include "rtp/receive_turn.h"
#include "rtp/service_thread.h"
#include "rtp/serving.h"
#include "rtp/stream.h"

namespace rtsptap {

bool ServeAsTaker(const Service &service, RTSPStreamInfo &stream, uint32_t handledBefore, uint64_t deadlineMs) {
    ReceiveTurn &turn = *service.turn(stream);
    const ReaderTurn reader(turn);
    if (!reader.IsMine() || !service.admitsReaders(stream) || MustEnd(*turn.thread)) return false;
    const auto isDone = [&] { return stream.handled != handledBefore; };
    const auto left = [&]() -> uint64_t { // ms
        const uint64_t now = MonotonicMs();
        return IsCalledOff(stream) || now >= deadlineMs ? 0 : deadlineMs - now;
    };
    uint64_t ms = left();
    Served served = isDone() || ms == 0 ? Served::kNothingLeft : ServeAfterNap(service, stream);
    const bool waits = !isDone();
    while (!isDone() && served != Served::kNoRoom && served != Served::kEnded && !turn.ended) {
        served =
            ms >= kTurnSliceMs ? service.serveWaiting(stream) : service.serveWithin(stream, static_cast<int>(ms));
        if (isDone() || ms == 0 || stream.streamState != kStreamPlaying || MustEnd(*turn.thread)) break;
        ms = left();
    }
    if (waits && NapUs(*stream.session) > 0) BeginToGather(turn);
    return isDone() || (served != Served::kNoRoom && served != Served::kEnded && !turn.ended);
}

} // namespace rtsptap
