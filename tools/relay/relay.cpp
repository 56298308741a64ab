// rtsptap_relay: a bad network between a sender and a receiver of RTP, or between the two ends of RTSP sessions,
// one at a time. RTP to the receiver is impaired. RTCP, what the receiver sends, and RTSP pass as they are, except
// for the ports in Transport headers: both sides are given the relay's own. One thread, one poll. Standard output
// has one line, the port; the figures come on standard error at the end.
#include "impairment.h"

#include "tools/man_page/man_page.h"

#include <CLI/CLI.hpp>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <list>
#include <optional>

namespace relay {
namespace {

std::atomic<bool> stop{false};

int64_t NowUs() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

sockaddr_in WithPort(sockaddr_in address, int port) {
    address.sin_port = htons(static_cast<uint16_t>(port));
    return address;
}

// A socket on the port, or on any when it is 0 and then becomes that one; -1 when it is taken.
int OpenBound(int type, uint16_t &port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    socklen_t length = sizeof address;
    const int fd = socket(AF_INET, type | SOCK_CLOEXEC, 0);
    // Bursts are lost by whom they are meant for, or by what was asked for, but not here.
    constexpr int kReceiveBufferBytes = 4 << 20;
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kReceiveBufferBytes, sizeof kReceiveBufferBytes);
    const bool bound = bind(fd, reinterpret_cast<sockaddr *>(&address), length) == 0 &&
                       getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) == 0;
    port = ntohs(address.sin_port);
    if (bound) return fd;
    close(fd);
    return -1;
}

// Puts PORT-PORT+1 in the place of the numbers behind `name`; the first of those, or 0.
int ReplacePorts(std::string &text, const std::string &name, int port) {
    std::size_t at = text.find(name);
    if (at == std::string::npos) return 0;
    at += name.size();
    const int old = std::atoi(text.c_str() + at);
    const std::size_t end = text.find_first_not_of("0123456789-", at);
    text.replace(at, end - at, std::to_string(port) + "-" + std::to_string(port + 1));
    return old;
}

// One UDP port between two others. The sender's address is learnt from its packets.
struct Route {
    int fd;
    uint16_t port;
    sockaddr_in receiver;
    std::optional<Impairment> impairment = {}; // none for RTCP
    sockaddr_in sender = {};

    void Pass();
    void Send(const sockaddr_in &to, const std::string &packet) const {
        sendto(fd, packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr *>(&to), sizeof to);
    }
    void SendUntil(int64_t nowUs) {
        if (!impairment) return;
        for (const std::string &packet : impairment->Depart(nowUs)) Send(receiver, packet);
    }
};

void Route::Pass() {
    char bytes[65536];
    sockaddr_in from = {};
    socklen_t length = sizeof from;
    for (;;) {
        const ssize_t count =
            recvfrom(fd, bytes, sizeof bytes, MSG_DONTWAIT, reinterpret_cast<sockaddr *>(&from), &length);
        if (count < 0) return;
        const std::string packet(bytes, static_cast<std::size_t>(count));
        const bool back = from.sin_port == receiver.sin_port && from.sin_addr.s_addr == receiver.sin_addr.s_addr;
        if (!back) sender = from;
        if (impairment && !back)
            impairment->Arrive(NowUs(), packet);
        else
            Send(back ? sender : receiver, packet);
        SendUntil(NowUs());
    }
}

struct Relay {
    ImpairmentSettings settings;
    int listener = -1, client = -1, upstream = -1;
    sockaddr_in server = {}, clientAddress = {};
    std::list<Route> routes = {}; // the newest pair in front, its RTP first

    // The port, or 0 when it is taken.
    uint16_t ListenForRtsp(uint16_t port);
    uint16_t ListenForRtp(uint16_t port, const sockaddr_in &receiver);
    void Run();

    void TakeConnection();
    void EndConnection();
    void PassRtsp(bool fromClient);
};

uint16_t Relay::ListenForRtsp(uint16_t port) {
    listener = OpenBound(SOCK_STREAM, port);
    return listen(listener, 1) == 0 ? port : 0;
}

uint16_t Relay::ListenForRtp(uint16_t port, const sockaddr_in &receiver) {
    uint16_t rtpPort = port;
    const int rtp = OpenBound(SOCK_DGRAM, rtpPort);
    auto rtcpPort = static_cast<uint16_t>(rtpPort + 1);
    const int rtcp = OpenBound(SOCK_DGRAM, rtcpPort);
    if (rtp < 0 || rtcp < 0) {
        close(rtp);
        close(rtcp);
        return port == 0 && rtp >= 0 ? ListenForRtp(0, receiver) : 0; // any pair will do
    }
    ImpairmentSettings own = settings;
    own.seed += routes.size() / 2; // every stream meets a fate of its own
    routes.push_front({rtcp, rtcpPort, WithPort(receiver, ntohs(receiver.sin_port) + 1)});
    routes.push_front({rtp, rtpPort, receiver, Impairment(own)});
    return rtpPort;
}

void Relay::TakeConnection() {
    EndConnection();
    socklen_t length = sizeof clientAddress;
    client = accept4(listener, reinterpret_cast<sockaddr *>(&clientAddress), &length, SOCK_CLOEXEC);
    upstream = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(upstream, reinterpret_cast<sockaddr *>(&server), sizeof server) != 0) EndConnection();
}

void Relay::EndConnection() {
    close(client);
    close(upstream);
    client = upstream = -1;
}

// A message with a Transport header is taken to come in one piece.
void Relay::PassRtsp(bool fromClient) {
    char bytes[65536];
    const ssize_t count = recv(fromClient ? client : upstream, bytes, sizeof bytes, 0);
    if (count <= 0) return EndConnection();
    std::string text(bytes, static_cast<std::size_t>(count));
    if (fromClient && text.find("client_port=") != std::string::npos) {
        const uint16_t own = ListenForRtp(0, clientAddress);
        const int port = ReplacePorts(text, "client_port=", own);
        routes.front().receiver = WithPort(clientAddress, port);
        std::next(routes.begin())->receiver = WithPort(clientAddress, port + 1);
    } else if (!fromClient && !routes.empty()) {
        ReplacePorts(text, "server_port=", routes.front().port);
        ReplacePorts(text, "client_port=", ntohs(routes.front().receiver.sin_port));
    }
    if (send(fromClient ? upstream : client, text.data(), text.size(), MSG_NOSIGNAL) < 0) EndConnection();
}

void Relay::Run() {
    while (!stop) {
        // Descriptors of -1 are passed over. Within a millisecond delayed packets are looked after.
        std::vector<pollfd> waits{{listener, POLLIN, 0}, {client, POLLIN, 0}, {upstream, POLLIN, 0}};
        for (const Route &route : routes) waits.push_back({route.fd, POLLIN, 0});
        poll(waits.data(), waits.size(), routes.empty() ? 100 : 1);
        for (Route &route : routes) {
            route.Pass();
            route.SendUntil(NowUs());
        }
        if (waits[1].revents != 0) PassRtsp(true);
        if (waits[2].revents != 0 && upstream >= 0) PassRtsp(false);
        if (waits[0].revents != 0) TakeConnection();
    }
    for (Route &route : routes) {
        route.SendUntil(INT64_MAX);
        if (route.impairment)
            std::fprintf(stderr, "packets %lu, lost %lu, sent twice %lu, held back %lu\n",
                         route.impairment->arrived, route.impairment->lost, route.impairment->duplicated,
                         route.impairment->heldBack);
    }
}

sockaddr_in Resolve(const std::string &hostAndPort) {
    const std::size_t colon = hostAndPort.rfind(':');
    if (colon == std::string::npos) return {};
    addrinfo hints = {};
    hints.ai_family = AF_INET;
    addrinfo *found = nullptr;
    if (getaddrinfo(hostAndPort.substr(0, colon).c_str(), hostAndPort.substr(colon + 1).c_str(), &hints, &found) !=
        0)
        return {};
    const sockaddr_in address = *reinterpret_cast<const sockaddr_in *>(found->ai_addr);
    freeaddrinfo(found);
    return address;
}

} // namespace
} // namespace relay

int main(int argc, char **argv) {
    for (const int signal : {SIGINT, SIGTERM}) std::signal(signal, [](int) { relay::stop = true; });
    relay::Relay between{};
    relay::ImpairmentSettings &network = between.settings;
    std::string server, receiver;
    uint16_t port = 0;
    CLI::App app("a bad network between a sender and a receiver of RTP", "rtsptap_relay");
    app.footer(
        "Stands before an RTSP server (--rtsp) for one session at a time, or before a receiver of RTP (--to), "
        "prints its port, and impairs the RTP that goes to the receiver; RTSP and RTCP pass as they are. The "
        "figures are printed at the end.");
    auto *ends = app.add_option_group("ends")->require_option(1);
    ends->add_option("--rtsp", server, "HOST:PORT of an RTSP server, reached through this port instead");
    ends->add_option("--to", receiver, "HOST:PORT of an RTP receiver, sent to through this port instead");
    app.add_option("--listen", port, "the port (default: any free one); RTCP has the one above");
    app.add_option("--loss", network.lossPercent, "percent of packets lost")->check(CLI::Range(0.0, 100.0));
    app.add_option("--loss-run", network.lossRun, "packets lost in a row")->check(CLI::PositiveNumber);
    app.add_option("--duplicate", network.duplicatePercent, "percent sent twice")->check(CLI::Range(0.0, 100.0));
    app.add_option("--reorder", network.reorderPercent, "percent held back")->check(CLI::Range(0.0, 100.0));
    app.add_option("--depth", network.reorderDepth, "until so many later ones came")->check(CLI::NonNegativeNumber);
    app.add_option("--jitter", network.jitterMs, "milliseconds, at most")->check(CLI::Range(0, 60000));
    app.add_option("--delay", network.delayMs, "milliseconds, every packet")->check(CLI::Range(0, 60000));
    app.add_option("--drift", network.driftPpm, "millionths by which the delay grows with time")
        ->check(CLI::Range(0.0, 1000000.0));
    app.add_option("--burst", network.burst, "packets that leave together")->check(CLI::PositiveNumber);
    app.add_option("--seed", network.seed, "the same seed brings the same fate");
    AddManPage(app);
    CLI11_PARSE(app, argc, argv);

    between.server = relay::Resolve(server);
    const sockaddr_in to = relay::Resolve(receiver);
    const uint16_t own = server.empty() ? between.ListenForRtp(port, to) : between.ListenForRtsp(port);
    if (own == 0 || (between.server.sin_port == 0 && to.sin_port == 0)) {
        std::fprintf(stderr, "rtsptap_relay: %s\n", own == 0 ? "the port is taken" : "no such address");
        return 1;
    }
    std::printf("listening on port %d\n", own);
    std::fflush(stdout);
    between.Run();
    return 0;
}
