// Tells a server from time to time that somebody still watches, where it does not take receiver reports for that.
#pragma once

#include "base/clock.h"
#include "base/outcome.h"
#include "session/session.h"

#include <memory>
#include <mutex>

namespace tool {

class KeepAlive {
public:
    // A server that merely does not like being asked is told about once, and left alone from then on.
    KeepAlive(std::shared_ptr<Session> session, std::chrono::duration<double> interval)
        : session_(std::move(session)), interval_(interval) {}

    // Sends what is due, in the background. Not Ok when the session has turned out to be gone.
    Outcome Look(Clock::time_point now);

private:
    struct Exchange {
        std::mutex lock; // guards the fields below
        bool running = false;
        Outcome trouble;
    };
    void Send() const;

    const std::shared_ptr<Session> session_;
    const std::chrono::duration<double> interval_;
    const std::shared_ptr<Exchange> exchange_ = std::make_shared<Exchange>();
    Clock::time_point last_ = Clock::now();
};

} // namespace tool
