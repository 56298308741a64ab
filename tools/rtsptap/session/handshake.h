// The steps from an address to playing streams, on one thread, while another one watches how far they are and may
// lose patience.
#pragma once

#include "base/clock.h"
#include "session/opening.h"

#include <mutex>

namespace tool {

class Handshake {
public:
    Handshake(Server server, Transport transport)
        : server_(std::move(server)), transport_(InLibrary(transport)), url_(server_.url) {
        opened_.transport = transport;
        if (transport == Transport::kAuto) opened_.transport = KeepsToTcp(url_) ? Transport::kTcp : Transport::kUdp;
    }

    void Run(); // takes what it began back when it was abandoned meanwhile

    struct Progress {
        std::string phase; // the step that runs
        std::string where; // the same as a failure has it, with the server where that says more
        Clock::time_point since;
        bool done = false;
    };
    Progress Look() const;

    // Takes what there is; what is still on its way is left to itself. False when it was not done.
    bool Leave(OpenedSession &opened, Outcome &outcome);

private:
    Outcome Talk();
    Outcome Resolve();
    Outcome Connect();
    Outcome Ask();
    Outcome AskOptions();
    Outcome Options();
    Outcome Describe();
    Outcome SetUpStreams();
    Outcome SetUpFirst(int32_t number);
    Outcome SetUpStream(int32_t number);
    void SetUpLatency();
    void LeaveOut(Stream &stream, const std::string &why);
    Outcome Judge(const std::string &phase, const Answer &answer);
    std::string Complaint(int32_t result, const std::string &scheme) const;
    void NoteTransport();
    static RTSPTapTransport InLibrary(Transport transport);
    bool Redirect();
    bool IsOwnHost() const;
    Target TargetOf() const;

    template <typename Call> Outcome Step(const std::string &phase, Call call);
    template <typename Exchange> Outcome Request(const std::string &phase, Exchange exchange);

    const Server server_;
    const RTSPTapTransport transport_;
    Url url_;                // where it leads now
    std::string ownAddress_; // the server's that the password is for
    std::string location_;   // of the latest reply that redirects
    OpenedSession opened_;
    Outcome outcome_;

    mutable std::mutex lock_; // guards the fields below
    Progress progress_;
    OpenedSession soFar_;              // without the session, when the step began
    std::shared_ptr<Session> session_; // of the step
    bool abandoned_ = false;
};

} // namespace tool
