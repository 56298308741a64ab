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
                signal != 0 ? OutcomeOfSignal(signal) : OutcomeOfTimeout(progress.phase, server.connectTimeout);
            handshake->Leave(opened, outcome);
            return outcome; // also of one that was done when the signal came
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
        const char *why =
            stream.codecType == 0 ? "its codec is not supported" : "an earlier one has the same codec";
        lines.push_back(NameOf(stream) + " is left out: " + why);
    }
    const int understood = static_cast<int>(opened.streams.size());
    if (opened.described > understood)
        lines.push_back("the description is not understood behind stream " + std::to_string(understood) + ": " +
                        std::to_string(opened.described - understood) + " more left out");
    return lines;
}

} // namespace tool
