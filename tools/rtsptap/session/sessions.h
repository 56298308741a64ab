// The sessions of a command, in one group: its only thread waits here, for packets, replies, what is due, and
// signals.
#pragma once

#include "base/interruption.h"
#include "session/session.h"

#include <chrono>
#include <functional>
#include <memory>
#include <span>
#include <vector>

namespace tool {

class Sessions {
public:
    explicit Sessions(Interruption &interruption) : interruption_(interruption) {}
    ~Sessions() { DropEarly(); }
    Sessions(const Sessions &) = delete;
    Sessions &operator=(const Sessions &) = delete;

    void Add(const Session &session) { session.Join(interruption_.Group()); }

    // Packets, and ends of streams; they go back by themselves.
    using Taker = std::function<void(std::span<const RTSPTapGroupPacket> records)>;

    // At most so long, and no longer than until something has come: packets, a reply, a signal. What comes while
    // nobody takes it, as right behind the reply to PLAY, is kept for the next taker, but not of those that leave.
    void Wait(std::chrono::milliseconds limit, const Taker &take = {});

    // For so long, or until a signal, which it returns; else 0.
    int TakeFor(std::chrono::milliseconds duration, const Taker &take = {});

    void DropEarly(); // what is kept

    // Its server is told, while other things are waited for.
    void TakeLeaveOf(std::shared_ptr<Session> session);
    bool AreLeaving() const { return !leaving_.empty(); }

    int Signal() const { return interruption_.Signal(); }

    // Runs on a thread of its own what may block; false when `goOn`, which waits here, has had enough. The thread
    // is left behind then.
    bool RunBeside(std::function<void()> work, const std::function<bool()> &goOn);

private:
    void Hand(std::span<const RTSPTapGroupPacket> records, const Taker &take);
    bool IsLeaving(const RTSPTapGroupPacket &record) const;

    Interruption &interruption_;
    std::vector<std::shared_ptr<Session>> leaving_;
    std::vector<RTSPTapGroupPacket> early_;
};

} // namespace tool
