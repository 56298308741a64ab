// From an address to playing streams, step by step: each step is timed, bounded, and named when it fails.
#pragma once

#include "base/interruption.h"
#include "base/settings.h"
#include "session/credentials.h"
#include "session/description.h"
#include "session/session.h"
#include "session/sessions.h"
#include "session/url.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tool {

struct Phase {
    std::string name; // "resolve", "connect", "OPTIONS", "DESCRIBE", "SETUP 1", "PLAY"
    std::chrono::microseconds time{0};
};

// What the server said of itself on the way.
struct ServerFacts {
    std::string address;
    uint16_t port = 0;
    std::string software;                               // Server header; empty: not said
    std::string methods;                                // Public header
    std::string authentication;                         // "none", "Digest", "Basic"; empty: no reply came
    std::optional<std::chrono::seconds> sessionTimeout; // of the SETUP reply
};

struct OpenedSession {
    std::shared_ptr<Session> session;            // null after a failure
    std::vector<Stream> streams;                 // of the description; those that are left out are not readable
    std::vector<StreamFormat> formats;           // of the streams that are received
    std::map<int32_t, uint32_t> firstTimestamps; // where streams begin, by number; of the reply to PLAY
    Transport transport = Transport::kUdp;
    ServerFacts facts;               // as far as it came, also after a failure
    std::vector<Phase> phases;       // those that succeeded
    int refusal = 0;                 // status of the reply that ended the attempt; 0: none did
    bool fellBack = false;           // to TCP, on the connection there was
    bool udpIsUnusable = false;      // the reply to a SETUP over UDP leads nowhere
    std::vector<std::string> notes;  // what happened on the way: redirections, falling back
    std::vector<UsedRule> tolerated; // what had to be forgiven
};

// The settings, read and checked: all that needs no network.
struct Server {
    Url url;
    Credentials credentials;
    MethodHeaders headers;
    std::chrono::milliseconds connectTimeout{0};
    std::chrono::milliseconds latency{0};
    int follow = 0; // redirections in a row
    bool exact = false;
    bool keepalive = true;
    TlsSettings tls;
    UdpSettings udp;
};

// Asks for a password where one is missing and there is a terminal.
Outcome ReadServer(const ServerSettings &settings, Interruption &interruption, Server &server);

// Called about every 100 ms while something is waited for.
using Tick = std::function<void()>;

// One attempt: over one transport; kAuto is UDP, and TCP where that is refused before anything is set up. Follows
// redirections; password and headers with secrets go to no other host. Trying again is the caller's. Says nothing.
Outcome OpenSession(const Server &server, Transport transport, Sessions &sessions, OpenedSession &opened,
                    const Tick &tick);

// One line for each stream that is left out: its number, its codec, and why.
std::vector<std::string> DescribeOmissions(const OpenedSession &opened);

} // namespace tool
