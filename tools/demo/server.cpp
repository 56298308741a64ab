#include "server.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace demo {
namespace {

constexpr std::size_t kConnectionLimit = 100;
constexpr std::size_t kMediaBacklog = 256 * 1024; // bytes that wait for a player; packets beyond it are lost
constexpr std::size_t kReplyBacklog = kMediaBacklog + 64 * 1024; // no request is read while so much waits
constexpr int64_t kSecondUs = 1000000;
constexpr int64_t kReportEveryUs = 5 * kSecondUs;
constexpr int64_t kAcceptPauseUs = kSecondUs / 10; // when there is no descriptor left
constexpr int64_t kFarewellUs = kSecondUs;         // for a player to take the last reply
constexpr int64_t kTooLateUs = kSecondUs; // after a standstill of the machine, say: what was missed is left out

int64_t NowUs() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

int OpenBound(int type, uint16_t &port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    const int on = 1;
    const int fd = socket(AF_INET, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) return -1;
    if (type == SOCK_STREAM) setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(fd, reinterpret_cast<sockaddr *>(&address), length) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) == 0) {
        port = ntohs(address.sin_port);
        return fd;
    }
    close(fd);
    return -1;
}

// Two ports, the lower one even (RFC 3550, 11). That one, or 0.
uint16_t OpenPair(std::vector<int> &sockets) {
    for (int attempt = 0; attempt < 200; ++attempt) {
        uint16_t port = 0;
        const int rtp = OpenBound(SOCK_DGRAM, port);
        if (rtp < 0) return 0;
        auto next = static_cast<uint16_t>(port + 1);
        const int rtcp = port % 2 == 0 ? OpenBound(SOCK_DGRAM, next) : -1;
        if (rtcp >= 0) {
            sockets.insert(sockets.end(), {rtp, rtcp});
            return port;
        }
        close(rtp);
    }
    return 0;
}

void Flush(Connection &connection) {
    while (!connection.output.empty()) {
        const ssize_t sent =
            send(connection.fd, connection.output.data(), connection.output.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0) {
            connection.output.erase(0, static_cast<std::size_t>(sent));
        } else if (errno == EAGAIN) {
            return;
        } else if (errno != EINTR) {
            connection.output.clear(); // nobody is there
            connection.endUs = 0;
        }
    }
    if (connection.endUs >= 0 && !connection.isShut) connection.isShut = shutdown(connection.fd, SHUT_WR) == 0;
}

void EndSoon(Connection &connection, int64_t nowUs) {
    if (connection.endUs < 0) connection.endUs = nowUs + kFarewellUs;
    connection.session.reset();
    connection.input.clear();
}

void AppendFrame(std::string &output, int channel, const Packet &packet) {
    output +=
        {'$', static_cast<char>(channel), static_cast<char>(packet.size() >> 8), static_cast<char>(packet.size())};
    output.append(packet.begin(), packet.end());
}

void SendDatagram(int socket, const sockaddr_in &to, const Packet &packet) {
    sendto(socket, packet.data(), packet.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
           reinterpret_cast<const sockaddr *>(&to), sizeof to);
}

bool IsFrom(const Stream &stream, const sockaddr_in &from) {
    const auto same = [&from](const sockaddr_in &own) {
        return own.sin_port == from.sin_port && own.sin_addr.s_addr == from.sin_addr.s_addr;
    };
    return stream.isSetUp && (same(stream.rtp) || same(stream.rtcp));
}

} // namespace

Server::~Server() {
    for (const Connection &connection : connections_) close(connection.fd);
    for (const int socket : sockets_) close(socket);
    if (listener_ >= 0) close(listener_);
}

uint16_t Server::Listen(uint16_t port) {
    for (std::size_t i = 0; i < offer_.tracks.size(); ++i) {
        offer_.ports.push_back(OpenPair(sockets_));
        if (offer_.ports.back() == 0) return 0;
    }
    listener_ = OpenBound(SOCK_STREAM, port);
    return listener_ >= 0 && listen(listener_, SOMAXCONN) == 0 ? port : 0;
}

void Server::Accept(int64_t nowUs) {
    Connection connection;
    socklen_t length = sizeof connection.peer;
    connection.fd =
        accept4(listener_, reinterpret_cast<sockaddr *>(&connection.peer), &length, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (connection.fd < 0) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS)
            acceptUs_ = nowUs + kAcceptPauseUs;
        return;
    }
    const int on = 1;
    setsockopt(connection.fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    connection.nonce = RandomHex(16);
    connection.heardUs = nowUs;
    connections_.push_back(std::move(connection));
}

void Server::Hear(Connection &connection, int64_t nowUs) {
    char bytes[4096];
    const ssize_t count = recv(connection.fd, bytes, sizeof bytes, MSG_DONTWAIT);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (count <= 0) {
        EndSoon(connection, nowUs);
        connection.isGone = true;
        if (count < 0) connection.output.clear();
    }
    // What comes behind the end is read all the same: bytes that nobody reads take the last reply with them.
    if (count > 0 && connection.endUs < 0) connection.input.append(bytes, static_cast<std::size_t>(count));
}

void Server::TakeRequests(Connection &connection, int64_t nowUs) {
    while (!connection.input.empty()) {
        if (connection.output.size() >= kReplyBacklog) Flush(connection);
        if (connection.output.size() >= kReplyBacklog) return; // until there is room again
        Request request;
        const Taken taken = TakeNext(connection.input, request);
        if (taken == Taken::kNothing) return;
        connection.heardUs = nowUs;
        if (taken == Taken::kRequest) connection.output += Answer(request, offer_, connection, nowUs);
        if (taken != Taken::kTooLong && taken != Taken::kMalformed) continue;
        connection.output += AnswerUnreadable(taken);
        EndSoon(connection, nowUs);
    }
}

// Whatever a player sends to the ports says that it is there.
void Server::HearReports(int socket, int64_t nowUs) {
    char bytes[2048];
    sockaddr_in from = {};
    socklen_t length = sizeof from;
    for (int i = 0; i < 64; ++i) {
        if (recvfrom(socket, bytes, sizeof bytes, MSG_DONTWAIT, reinterpret_cast<sockaddr *>(&from), &length) < 0)
            return;
        for (Connection &connection : connections_) {
            const auto isSender = [&from](const Stream &stream) { return IsFrom(stream, from); };
            if (!connection.session) continue;
            const std::vector<Stream> &streams = connection.session->streams;
            if (std::any_of(streams.begin(), streams.end(), isSender)) connection.heardUs = nowUs;
        }
    }
}

void Server::SendUnit(Connection &connection, std::size_t track) {
    Stream &stream = connection.session->streams[track];
    const bool isFull = connection.output.size() > kMediaBacklog;
    for (const Packet &packet : PacketsOfUnit(offer_.tracks[track], stream.nextUnit++, stream.source)) {
        if (stream.channel < 0)
            SendDatagram(sockets_[2 * track], stream.rtp, packet);
        else if (!isFull)
            AppendFrame(connection.output, stream.channel, packet);
    }
}

void Server::SendReport(Connection &connection, std::size_t track, int64_t nowUs) {
    Stream &stream = connection.session->streams[track];
    stream.reportUs = nowUs + kReportEveryUs;
    const Packet report = SenderReport(offer_.tracks[track], stream.source, nowUs - connection.session->beganUs);
    if (stream.channel < 0)
        SendDatagram(sockets_[2 * track + 1], stream.rtcp, report);
    else if (connection.output.size() <= kMediaBacklog)
        AppendFrame(connection.output, stream.rtcpChannel, report);
}

// What is due to the connection's streams; when the next is.
int64_t Server::SendDue(Connection &connection, int64_t nowUs) {
    int64_t nextUs = INT64_MAX;
    if (!connection.session) return nextUs;
    const int64_t beganUs = connection.session->beganUs;
    for (std::size_t i = 0; i < offer_.tracks.size(); ++i) {
        Stream &stream = connection.session->streams[i];
        const Track &track = offer_.tracks[i];
        if (!stream.isPlaying) continue;
        if (beganUs + DueUs(track, stream.nextUnit) < nowUs - kTooLateUs) Join(track, stream, nowUs - beganUs);
        while (beganUs + DueUs(track, stream.nextUnit) <= nowUs) SendUnit(connection, i);
        if (stream.reportUs <= nowUs) SendReport(connection, i, nowUs);
        nextUs = std::min({nextUs, beganUs + DueUs(track, stream.nextUnit), stream.reportUs});
    }
    return nextUs;
}

// Waits for what comes in, at most until then. By descriptor: the UDP sockets, the listener, the connections.
std::vector<pollfd> Server::Wait(int64_t untilUs) const {
    std::vector<pollfd> waits;
    for (const int socket : sockets_) waits.push_back({socket, POLLIN, 0});
    const bool canAccept = connections_.size() < kConnectionLimit && NowUs() >= acceptUs_;
    waits.push_back({canAccept ? listener_ : -1, POLLIN, 0});
    for (const Connection &connection : connections_) {
        const bool isHeard = !connection.isGone && connection.output.size() < kReplyBacklog;
        const int out = connection.output.empty() ? 0 : POLLOUT;
        waits.push_back({connection.fd, static_cast<short>((isHeard ? POLLIN : 0) | out), 0});
    }
    const int64_t waitUs = std::clamp<int64_t>(untilUs - NowUs(), 0, kSecondUs / 5);
    const timespec wait = {0, static_cast<long>(waitUs * 1000)};
    sigset_t none;
    sigemptyset(&none);
    if (ppoll(waits.data(), waits.size(), &wait, &none) <= 0)
        for (pollfd &entry : waits) entry.revents = 0;
    return waits;
}

// Hears a connection out and sends what is due to it; when the next is. Its end comes with silence, too.
int64_t Server::Serve(Connection &connection, short events, int64_t nowUs) {
    if ((events & (POLLIN | POLLERR | POLLHUP)) != 0) Hear(connection, nowUs);
    if (events != 0) TakeRequests(connection, nowUs);
    const int64_t nextUs = SendDue(connection, nowUs);
    Flush(connection);
    if (connection.heardUs < nowUs - offer_.timeoutSeconds * kSecondUs) connection.endUs = 0;
    if (connection.isGone && connection.output.empty()) connection.endUs = 0;
    return nextUs;
}

void Server::Run(const volatile int *end, int seconds) {
    const int64_t endUs = seconds > 0 ? NowUs() + seconds * kSecondUs : INT64_MAX;
    for (int64_t nextUs = 0, nowUs = NowUs(); *end == 0 && nowUs < endUs;) {
        const std::vector<pollfd> waits = Wait(std::min(nextUs, endUs));
        nowUs = NowUs();
        nextUs = endUs;
        auto at = waits.begin();
        for (const int socket : sockets_)
            if ((at++)->revents != 0) HearReports(socket, nowUs);
        const bool isCalled = (at++)->revents != 0;
        for (Connection &connection : connections_)
            nextUs = std::min(nextUs, Serve(connection, (at++)->revents, nowUs));
        connections_.remove_if([nowUs](const Connection &connection) {
            const bool isOver = connection.endUs >= 0 && connection.endUs <= nowUs;
            return isOver && close(connection.fd) <= 0;
        });
        if (isCalled) Accept(nowUs); // last: the others' entries stay in their places
    }
}

} // namespace demo
