#include "fuzz/loopback_server.h"

#include "fuzz/fuzz_target.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace rtsptap::fuzz {
namespace {

constexpr char kDescription[] = "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=x\r\nt=0 0\r\n"
                                "m=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\na=control:1\r\n"
                                "m=audio 0 RTP/AVP 97\r\na=rtpmap:97 mpeg4-generic/44100/2\r\na=control:2\r\n";
constexpr const char *kStatus[] = {"200 OK",      "200 OK",    "200 OK",   "401 Unauthorized",
                                   "454 Session", "302 Moved", "503 Busy", "100 Continue"};

std::string Header(std::string_view request) {
    if (request.starts_with("SETUP") && request.find("TCP") != request.npos)
        return "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n";
    if (request.starts_with("SETUP")) return "Transport: RTP/AVP;unicast;server_port=5000-5001\r\n";
    return "WWW-Authenticate: Digest realm=\"r\", nonce=\"n\"\r\n";
}

} // namespace

LoopbackServer::LoopbackServer() : listener_(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto *const name = reinterpret_cast<sockaddr *>(&address);
    socklen_t length = sizeof address;
    Require(bind(listener_, name, length) == 0 && listen(listener_, 64) == 0);
    Require(getsockname(listener_, name, &length) == 0);
    port_ = ntohs(address.sin_port);
    std::thread([this] { Serve(); }).detach();
}

void LoopbackServer::SendMedia(int connection) const {
    for (uint16_t number = 1; number < 5; ++number) {
        const std::string packet = test::Rtp(number);
        udp.SendTo(clientPort, packet);
        const std::string frame = test::Frame(0, packet);
        send(connection, frame.data(), frame.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    }
}

bool LoopbackServer::Answer(int connection, std::string_view request) {
    const uint8_t now = mood;
    if (const std::size_t at = request.find("client_port="); at != request.npos)
        clientPort = static_cast<uint16_t>(std::atoi(request.data() + at + 12));
    if (now & kWithMedia) SendMedia(connection);
    const std::string body = request.starts_with("DESCRIBE") ? kDescription : "";
    std::string reply = std::string("RTSP/1.0 ") + kStatus[now & kStatusBits] +
                        "\r\nCSeq: 1\r\nSession: " + (now & kStrangeSession ? "2" : "1") + "\r\n" +
                        Header(request) + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    if (now & kCut) reply.resize(reply.size() / 2);
    if ((now & kNoReply) == 0) send(connection, reply.data(), reply.size(), MSG_NOSIGNAL);
    return (now & kClose) == 0;
}

// Every request of the library comes in one piece: it is sent in one piece.
void LoopbackServer::Serve() {
    std::vector<pollfd> sockets{{listener_, POLLIN, 0}};
    static char text[1 << 16];
    for (;;) {
        ::poll(sockets.data(), sockets.size(), -1);
        if (sockets[0].revents != 0) sockets.push_back({accept(listener_, nullptr, nullptr), POLLIN, 0});
        for (std::size_t i = sockets.size() - 1; i > 0; --i) {
            if (sockets[i].revents == 0) continue;
            const ssize_t length = recv(sockets[i].fd, text, sizeof text - 1, MSG_DONTWAIT);
            if (length > 0) text[length] = '\0';
            if (length > 0 && (*text == '$' || Answer(sockets[i].fd, {text, static_cast<std::size_t>(length)})))
                continue;
            close(sockets[i].fd);
            sockets.erase(sockets.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
}

} // namespace rtsptap::fuzz
