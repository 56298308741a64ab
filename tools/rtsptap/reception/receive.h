// The one loop that every receiving command runs: opens, falls back to another transport, takes packets, shows
// them, reconnects, keeps the session alive, and ends on a limit, a signal, or when somebody has enough.
#pragma once

#include "base/interruption.h"
#include "base/settings.h"
#include "reception/intake.h"
#include "reception/observation.h"
#include "session/opening.h"

#include <chrono>
#include <functional>
#include <memory>
#include <span>
#include <vector>

namespace tool {

// Where packets go: a file, standard output, a picture.
class PacketSink {
public:
    PacketSink() = default;
    virtual ~PacketSink() = default;
    PacketSink(const PacketSink &) = delete;
    PacketSink &operator=(const PacketSink &) = delete;

    // Before each session's first packet; none of an earlier one is on its way.
    virtual void BeginSession(const OpenedSession &) {}

    virtual void Take(const Stream &stream, const RTPStreamData &packet, Clock::time_point arrival) = 0;

    // An RTCP packet of a stream, received or sent.
    virtual void TakeControl(int32_t, bool, std::span<const uint8_t>) {}

    virtual bool IsDone() = 0;    // wants no more packets: complete, or failed
    virtual Outcome Finish() = 0; // completes the output; packets taken later are discarded
};

// Who takes part in a reception.
struct Audience {
    std::vector<Watcher *> watchers; // shown it every 100 ms; all are finished, in this order, whatever happens
    std::vector<PacketObserver> observers; // every packet

    // With the first session, before its packets are taken: what they go to. May stay empty.
    std::function<Outcome(const OpenedSession &, std::unique_ptr<PacketSink> &)> makeSink;

    // Each time streams begin to play. May stay empty.
    std::function<void(const OpenedSession &)> opened;

    // Each time an attempt failed, with what it found out before. May stay empty.
    std::function<void(const OpenedSession &)> refused;
};

// From an RTSP server. The duration begins with the first packet, or, without an idle time-out, with the session;
// 0: until interrupted.
Outcome ReceiveFromServer(const ServerSettings &server, std::chrono::milliseconds duration,
                          const Audience &audience, Interruption &interruption);

// From streams that are received already, without RTSP. The duration begins at once; nothing idle ends it.
Outcome ReceiveOpened(const OpenedSession &opened, std::chrono::milliseconds duration, const Audience &audience,
                      Interruption &interruption);

} // namespace tool
