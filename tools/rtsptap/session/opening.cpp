#include "session/opening.h"

#include "base/background.h"
#include "session/handshake.h"

namespace tool {
namespace {

constexpr auto kLook = std::chrono::milliseconds(5);
constexpr auto kTick = std::chrono::milliseconds(100);

} // namespace

Outcome ReadServer(const ServerSettings &settings, Interruption &interruption, Server &server) {
    if (Outcome refused = ParseUrl(settings.url, server.url); !refused.IsOk()) return refused;
    for (const std::string &header : settings.headers)
        if (Outcome refused = AddHeaderOption(header, server.headers); !refused.IsOk()) return refused;
    server.connectTimeout = settings.connectTimeout;
    server.latency = settings.latency.value_or(std::chrono::milliseconds(0));
    server.follow = settings.follow;
    server.exact = settings.exact;
    server.tls = settings.tls;
    server.udp = settings.udp;
    server.keepalive = settings.keepalive;
    return ReadCredentials(settings, server.url, interruption, server.credentials);
}

Outcome OpenSession(const Server &server, Transport transport, Interruption &interruption, OpenedSession &opened,
                    const Tick &tick) {
    opened = {};
    const auto handshake = std::make_shared<Handshake>(server, transport);
    RunInBackground([handshake] { handshake->Run(); });
    Clock::time_point lastTick = Clock::now();
    for (;;) {
        const int signal = interruption.WaitFor(kLook);
        const Handshake::Progress progress = handshake->Look();
        const Clock::time_point now = Clock::now();
        const bool late = !progress.phase.empty() && now - progress.since > server.connectTimeout;
        if (signal != 0 || progress.done || late) {
            Outcome outcome =
                signal != 0 ? OutcomeOfSignal(signal) : OutcomeOfTimeout(progress.where, server.connectTimeout);
            handshake->Leave(opened, outcome); // also of one that was done when the signal came
            return outcome;
        }
        if (now - lastTick >= kTick) {
            lastTick = now;
            tick();
        }
    }
}

std::vector<std::string> DescribeOmissions(const OpenedSession &opened) {
    std::vector<std::string> lines;
    for (const Stream &stream : opened.streams) {
        if (stream.isReadable) continue;
        lines.push_back(NameOf(stream) + " is left out: " + stream.omission);
    }
    return lines;
}

} // namespace tool
