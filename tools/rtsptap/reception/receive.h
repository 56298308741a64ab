// The one loop that every receiving command runs: opens, falls back to another transport, takes packets, shows
// them, reconnects, keeps the session alive, and ends on a limit, a signal, or when somebody has enough.
#pragma once

#include "base/interruption.h"
#include "base/settings.h"
#include "reception/observation.h"
#include "reception/packet_sink.h"
#include "reception/reception.h"
#include "session/opening.h"

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

namespace tool {

// Who takes part in a reception.
struct Audience {
    std::vector<Watcher *> watchers; // shown it every 100 ms; all are finished, in this order, whatever happens
    std::vector<PacketObserver> observers; // every packet, on the thread that reads its stream

    // With the first session, before its packets are taken: what they go to. May stay empty.
    std::function<Outcome(const OpenedSession &, std::unique_ptr<PacketSink> &)> makeSink;

    // Each time streams begin to play, on the command's thread. May stay empty.
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
