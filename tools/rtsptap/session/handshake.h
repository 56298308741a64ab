// The steps from an address to playing streams, on one thread, while another one watches how far they are and may
// lose patience.
#pragma once

#include "base/clock.h"
#include "session/opening.h"

#include <mutex>

namespace tool {

class Handshake {
public:
    Handshake(Server server, Transport transport) : server_(std::move(server)) {
        opened_.transport = transport == Transport::kAuto ? Transport::kUdp : transport;
    }

    void Run(); // takes what it began back when it was abandoned meanwhile

    struct Progress {
        std::string phase; // the step that runs
        Clock::time_point since;
        bool done = false;
    };
    Progress Look() const;

    // Takes what there is; what is still on its way is left to itself. False when it was not done.
    bool Leave(OpenedSession &opened, Outcome &outcome);

private:
    Outcome Resolve();
    Outcome Talk();
    Outcome Connect();
    Outcome Ask();
    Outcome SetUpStreams();
    Outcome SetUpStream(int32_t number);
    void SetUpLatency();
    Outcome Judge(const std::string &phase, const Answer &answer);
    void NoteChallenge(const Reply &reply);

    template <typename Call> Outcome Step(const std::string &phase, Call call);
    template <typename Exchange> Outcome Request(const std::string &phase, Exchange exchange);

    const Server server_;
    bool basic_ = false;        // every request carries the password
    bool basicOffered_ = false; // and nothing else that the library can answer
    OpenedSession opened_;
    Outcome outcome_;

    mutable std::mutex lock_; // guards the fields below
    Progress progress_;
    OpenedSession soFar_; // without the session, when the step began
    bool abandoned_ = false;
};

} // namespace tool
