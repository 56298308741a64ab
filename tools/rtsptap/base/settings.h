// What the command line says: one record for each group of options that commands share.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace tool {

enum class Transport { kAuto, kUdp, kTcp, kMulticast };

// Whom connections through TLS believe, and who we are to them.
struct TlsSettings {
    std::string roots;       // file of certificates in place of the system's; empty: those
    std::string certificate; // file with ours and its key; empty: none
    bool insecure = false;   // whoever answers is believed
};

// Where datagrams are received, and from whom.
struct UdpSettings {
    int firstPort = 0; // 0: as the library counts
    int lastPort = 0;
    bool onlyServer = false; // nobody else's, and of whom it names
};

// How to get from an address to playing streams, and to stay there.
struct ServerSettings {
    std::string url;
    std::string user;         // replaces the one of the URL
    std::string passwordFile; // its first line; "-" is standard input
    Transport transport = Transport::kAuto;
    TlsSettings tls;
    UdpSettings udp;
    std::vector<std::string> headers;                 // "METHOD: Name: value"
    std::chrono::milliseconds connectTimeout{10000};  // for each step until media is due
    std::chrono::milliseconds idleTimeout{10000};     // without a packet on any stream
    std::optional<std::chrono::milliseconds> latency; // how long packets are held back; none: as usual
    bool keepalive = true;                            // asks something before the server ends a silent session
    int follow = 5;                                   // redirections in a row
    std::optional<int> reconnect;                     // how often in a row; 0: without end; none: not at all
    bool exact = false; // takes what the standards allow, instead of what devices are known to send
};

// What a stream of packets must keep to; exit status 14 when it does not.
struct HealthSettings {
    std::optional<double> maxLossPercent;
    std::optional<double> minBitsPerSecond;          // of all streams together
    std::optional<std::chrono::milliseconds> maxGap; // of a stream, over reconnections, too
    std::vector<std::string> expectedCodecs;
};

// How reception is shown and when it ends.
struct ReceptionSettings {
    std::chrono::milliseconds duration{0}; // from the first packet; 0: until interrupted
    std::string statsJson;                 // file for one object a second; "-": standard output; empty: none
    HealthSettings health;
};

// What of it all appears on standard error.
struct ConsoleSettings {
    bool quiet = false;   // errors only
    bool verbose = false; // what the library prints, too
    bool color = true;    // where it is a terminal
};

} // namespace tool
