#include "session/opening.h"

#include "session/handshake.h"

namespace tool {

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

Outcome OpenSession(const Server &server, Transport transport, Sessions &sessions, OpenedSession &opened,
                    const Tick &tick) {
    return Handshake(server, transport, sessions, tick).Run(opened);
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
