// One reception, over as many sessions as it takes: packets are taken, shown, and written until something ends it.
// It never opens a session itself.
#pragma once

#include "reception/receive.h"

#include <memory>
#include <string>
#include <vector>

namespace tool {

class SessionLoop {
public:
    // The audience outlives it. No idle time-out: silence ends nothing, and the duration begins with the session.
    SessionLoop(const Audience &audience, std::chrono::milliseconds duration, std::chrono::milliseconds idleTimeout,
                Interruption &interruption);

    Outcome Begin(const OpenedSession &opened);
    void NoteRefusal(const OpenedSession &opened) const; // instead

    enum class End { kOver, kMediaEnded, kNoMediaOverUdp };

    // Lets packets come until something ends it; of ended media the outcome says why.
    End Run(bool fallsBack, Outcome &outcome);

    Clock::duration Delivered() const; // from the beginning of the current session to its latest packet
    void EndSession();                 // takes no more packets; the server is told meanwhile
    void WaitForTeardown();            // until the server has heard of it, but no longer than a second after that

    Sessions &AllSessions() { return sessions_; }

    // Shows a state for so long; false when something ended it all.
    bool Pause(std::chrono::milliseconds pause, const std::string &state);
    void SetState(const std::string &state) { state_ = state; }
    void Show();

    // Finishes files and watchers, and says how it all ended; own: why the reception did.
    Outcome Conclude(const Outcome &own);

private:
    std::vector<PacketObserver> ObserversOf(const Audience &audience);
    Observation ObserveAt(Clock::time_point now) const;
    Observation Observe();
    bool IsOver(const Observation &now) const;
    Outcome MediaTrouble(const Observation &now) const;
    Clock::time_point Beginning(const Observation &now) const;
    Outcome Finish(int signal, const Outcome &own);
    int TakeFor(std::chrono::milliseconds duration);

    const Audience &audience_;
    const std::chrono::milliseconds duration_;
    const std::chrono::milliseconds idleTimeout_;
    Sessions sessions_;
    std::unique_ptr<PacketSink> sink_;
    std::shared_ptr<Session> session_;
    Clock::time_point firstBegin_;
    Clock::time_point sessionBegin_;
    uint64_t packetsBefore_ = 0; // the current session
    uint64_t reconnects_ = 0;
    Clock::time_point looked_;  // when it was observed last
    Clock::time_point resumed_; // when this process last went on after it had been stopped
    bool hasServer_ = false;
    Transport transport_ = Transport::kUdp;
    std::string state_;
    Clock::time_point teardownBegin_;
    Intake intake_;
};

} // namespace tool
