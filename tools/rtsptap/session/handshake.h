// The steps from an address to playing streams, one after the other. Where one waits, so does everything else that
// the command's thread does, in Wait, which ends them all when a signal comes or patience is lost.
#pragma once

#include "base/clock.h"
#include "session/opening.h"
#include "session/sessions.h"

namespace tool {

class Handshake {
public:
    Handshake(const Server &server, Transport transport, Sessions &sessions, const Tick &tick)
        : server_(server), transport_(InLibrary(transport)), sessions_(sessions), tick_(tick), url_(server_.url) {
        opened_.transport = transport;
        if (transport == Transport::kAuto) opened_.transport = KeepsToTcp(url_) ? Transport::kTcp : Transport::kUdp;
    }

    Outcome Run(OpenedSession &opened); // what there is, also after a failure

private:
    bool Wait();
    Outcome Talk();
    Outcome Resolve();
    Outcome FindAddress();
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

    const Server &server_;
    const RTSPTapTransport transport_;
    Sessions &sessions_;
    const Tick &tick_;
    Url url_;                // where it leads now
    std::string ownAddress_; // the server's that the password is for
    std::string location_;   // of the latest reply that redirects
    OpenedSession opened_;

    std::string step_; // the one that runs, with the server where that says more
    Clock::time_point stepBegin_;
    Clock::time_point lastTick_ = Clock::now();
    Outcome stop_; // why it goes no further: a signal, or a step that took too long
};

} // namespace tool
