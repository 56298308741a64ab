#include "rtsp/client/http_tunnel.h"

#include "platform/system.h"
#include "platform/text.h"
#include "platform/url.h"
#include "rtsptap_extended.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <sys/random.h>
#include <sys/socket.h>

namespace rtsptap {
namespace {

constexpr std::size_t kHeadBytes = 8192;     // the most that the reply to GET may have before its body
constexpr std::size_t kRequestBytes = 16384; // of GET and POST: an URL's path has up to 8 KiB
constexpr std::size_t kMostAtOnce = 12288;   // bytes of requests that are encoded together; a multiple of 3
constexpr std::size_t kCookieBytes = 16;     // random
constexpr std::size_t kTextBytes = 2 * kCookieBytes + 1;
constexpr const char *kLength = "32767"; // of a body that nobody knows the end of, as everybody says

// ---- what tunnels are made by ----

struct TunnelPlan {
    StreamMaker *below = nullptr; // one use is ours; null: plain sockets
    HeapText path;
    HeapText host; // and port
    HeapText userAgent;
};

TunnelPlan &PlanOf(void *context) { return *static_cast<TunnelPlan *>(context); }

void ReleasePlan(void *context) {
    DropTable(PlanOf(context).below);
    delete &PlanOf(context);
}

// ---- one of the two connections ----

struct Leg {
    int socket = -1;
    ByteStreamPtr stream; // null: plain
};

ssize_t ReadLeg(const Leg &leg, void *bytes, std::size_t count) {
    return leg.stream ? ReadBytes(*leg.stream, bytes, count) : recv(leg.socket, bytes, count, MSG_DONTWAIT);
}

ssize_t WriteLeg(const Leg &leg, const void *bytes, std::size_t count) {
    return leg.stream ? WriteBytes(*leg.stream, bytes, count)
                      : send(leg.socket, bytes, count, MSG_DONTWAIT | MSG_NOSIGNAL);
}

bool MustWait(ssize_t result) { return result < 0 && (errno == EAGAIN || IsInterrupted(errno)); }

// ---- a tunnel ----

enum class Phase { kShakeGet, kSendGet, kReadHead, kConnectPost, kShakePost, kSendPost, kOpen };

// What is still to be sent on a leg.
struct Outgoing {
    HeapText text;
    std::size_t size = 0;
    std::size_t sent = 0;
};

struct Tunnel {
    explicit Tunnel(TunnelPlan &madeBy) : plan(madeBy) {}

    TunnelPlan &plan;
    Phase phase = Phase::kShakeGet;
    char cookie[kTextBytes] = {};
    char host[256] = {};
    char failure[256] = {};
    // ---- Reading ----
    Leg get;
    char head[kHeadBytes] = {};        // of the reply, and what came behind it
    std::size_t headEnd = 0;           // bytes of it
    std::atomic<uint32_t> headLeft{0}; // of the body, not yet read
    // ---- Writing ----
    Leg post;
    Outgoing outgoing;
};

Tunnel &TunnelOf(void *stream) { return *static_cast<Tunnel *>(stream); }

int32_t Fail(Tunnel &tunnel, int32_t code, std::string_view why) {
    CopyText(tunnel.failure, why);
    return code;
}

int32_t FailClosed(Tunnel &tunnel) {
    return Fail(tunnel, RTSPTAP_HANDSHAKE_FAILED, "the server closed the connection of the HTTP tunnel");
}

// Of the stream below, in its words.
int32_t FailBelow(Tunnel &tunnel, const Leg &leg, int32_t code) {
    return Fail(tunnel, code, leg.stream ? FailureOf(*leg.stream) : "");
}

// A result of 1 is no failure: more is to come, or to go.
constexpr int32_t kWait = 1;

int32_t SendOutgoing(Outgoing &outgoing, const Leg &leg) {
    while (outgoing.sent < outgoing.size) {
        const ssize_t sent = WriteLeg(leg, outgoing.text.get() + outgoing.sent, outgoing.size - outgoing.sent);
        if (MustWait(sent)) return kWait;
        if (sent < 1) return RTSPTAP_HANDSHAKE_FAILED;
        outgoing.sent += static_cast<std::size_t>(sent);
    }
    if (leg.stream && WriteBytes(*leg.stream, nullptr, 0) < 0 && errno == EAGAIN) return kWait;
    outgoing = {};
    return RTSP_SUCCESS;
}

bool WriteHead(Tunnel &tunnel, const char *method, const char *further) {
    Outgoing &outgoing = tunnel.outgoing;
    outgoing.text.reset(static_cast<char *>(std::malloc(kRequestBytes)));
    if (!outgoing.text) return false;
    const int size = std::snprintf(outgoing.text.get(), kRequestBytes,
                                   "%s %s HTTP/1.0\r\nHost: %s\r\nUser-Agent: %s\r\nx-sessioncookie: %s\r\n%s"
                                   "Pragma: no-cache\r\nCache-Control: no-cache\r\n\r\n",
                                   method, tunnel.plan.path.get(), tunnel.plan.host.get(),
                                   tunnel.plan.userAgent.get(), tunnel.cookie, further);
    outgoing.size = std::min(static_cast<std::size_t>(std::max(size, 0)), kRequestBytes - 1);
    return true;
}

// ---- the reply to GET ----

std::string_view HeadLine(std::string_view &head) {
    const std::string_view line = head.substr(0, head.find('\n'));
    head.remove_prefix(std::min(line.size() + 1, head.size()));
    return line.ends_with('\r') ? line.substr(0, line.size() - 1) : line;
}

bool IsChunked(std::string_view head) {
    while (!head.empty()) {
        std::string_view line = HeadLine(head);
        std::string_view name;
        if (Until(line, ':', name) && EqualIgnoringCase(WithoutBlanks(name), "Transfer-Encoding"))
            return !EqualIgnoringCase(WithoutBlanks(line), "identity");
    }
    return false;
}

int32_t JudgeHead(Tunnel &tunnel, std::string_view head) {
    const std::string_view status = HeadLine(head);
    std::string_view rest = status;
    std::string_view version;
    if (!Until(rest, ' ', version) || !version.starts_with("HTTP/1."))
        return Fail(tunnel, RTSPTAP_BAD_TUNNEL, "the reply to the tunnel's GET is none of HTTP");
    if (LeadingNumber(rest) != 200 || HasControlCharacter(status))
        return Fail(tunnel, RTSPTAP_TUNNEL_REFUSED, HasControlCharacter(status) ? "" : status);
    if (IsChunked(head))
        return Fail(tunnel, RTSPTAP_BAD_TUNNEL,
                    "the reply to the tunnel's GET is chunked: a proxy that does not fit");
    return RTSP_SUCCESS;
}

// Where the body begins; 0 while the empty line has not come.
std::size_t EndOfHead(std::string_view text) {
    const std::size_t strict = text.find("\n\r\n");
    const std::size_t loose = text.find("\n\n");
    if (strict == text.npos && loose == text.npos) return 0;
    return strict < loose ? strict + 3 : loose + 2;
}

int32_t ReadHead(Tunnel &tunnel) {
    for (;;) {
        const ssize_t received = ReadLeg(tunnel.get, tunnel.head + tunnel.headEnd, kHeadBytes - tunnel.headEnd);
        if (MustWait(received)) return kWait;
        if (received < 1) return FailClosed(tunnel);
        tunnel.headEnd += static_cast<std::size_t>(received);
        const std::string_view text(tunnel.head, tunnel.headEnd);
        if (const std::size_t end = EndOfHead(text); end > 0) {
            tunnel.headLeft = static_cast<uint32_t>(tunnel.headEnd - end);
            return JudgeHead(tunnel, text.substr(0, end));
        }
        if (tunnel.headEnd == kHeadBytes)
            return Fail(tunnel, RTSPTAP_BAD_TUNNEL, "the reply to the tunnel's GET has a head that is too long");
    }
}

// ---- the second connection ----

int32_t BeginPost(Tunnel &tunnel) {
    sockaddr_storage peer = {};
    socklen_t length = sizeof peer;
    auto *const address = reinterpret_cast<sockaddr *>(&peer);
    if (getpeername(tunnel.get.socket, address, &length) != 0) return FailClosed(tunnel);
    tunnel.post.socket = socket(peer.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (tunnel.post.socket < 0) return RTSP_SOCKET_FAILED;
    const bool isBegun = connect(tunnel.post.socket, address, length) == 0 || errno == EINPROGRESS;
    return isBegun ? RTSP_SUCCESS : RTSP_CONNECT_FAILED;
}

int32_t AwaitPost(Tunnel &tunnel) {
    pollfd connected = {tunnel.post.socket, POLLOUT, 0};
    if (poll(&connected, 1, 0) < 1) return kWait;
    int error = 0;
    socklen_t length = sizeof error;
    getsockopt(tunnel.post.socket, SOL_SOCKET, SO_ERROR, &error, &length);
    return error == 0 ? RTSP_SUCCESS : Fail(tunnel, RTSP_CONNECT_FAILED, std::strerror(error));
}

bool OpenLeg(const Tunnel &tunnel, Leg &leg, int socket) {
    leg.socket = socket;
    if (tunnel.plan.below == nullptr) return true;
    leg.stream = OpenByteStream(*tunnel.plan.below, socket, tunnel.host);
    return leg.stream != nullptr;
}

int32_t ShakeLeg(Tunnel &tunnel, const Leg &leg) {
    if (!leg.stream || leg.stream->maker->table.handshake == nullptr) return RTSP_SUCCESS;
    const int32_t result = leg.stream->maker->table.handshake(leg.stream->state);
    return result < 0 ? FailBelow(tunnel, leg, result) : result;
}

// ---- one step of the handshake after the other ----

int32_t StepGet(Tunnel &tunnel) {
    if (tunnel.phase == Phase::kShakeGet) {
        if (const int32_t result = ShakeLeg(tunnel, tunnel.get); result != RTSP_SUCCESS) return result;
        return WriteHead(tunnel, "GET", "Accept: application/x-rtsp-tunnelled\r\n") ? RTSP_SUCCESS : RTSP_NO_MEMORY;
    }
    if (tunnel.phase == Phase::kReadHead) return ReadHead(tunnel);
    const int32_t result = SendOutgoing(tunnel.outgoing, tunnel.get);
    return result < 0 ? FailClosed(tunnel) : result;
}

int32_t StepPost(Tunnel &tunnel) {
    if (tunnel.phase == Phase::kShakePost) {
        if (const int32_t result = ShakeLeg(tunnel, tunnel.post); result != RTSP_SUCCESS) return result;
        char further[160];
        (void)std::snprintf(further, sizeof further,
                            "Content-Type: application/x-rtsp-tunnelled\r\nContent-Length: %s\r\n"
                            "Expires: Sun, 9 Jan 1972 00:00:00 GMT\r\n",
                            kLength);
        return WriteHead(tunnel, "POST", further) ? RTSP_SUCCESS : RTSP_NO_MEMORY;
    }
    const int32_t result = SendOutgoing(tunnel.outgoing, tunnel.post);
    return result < 0 ? FailClosed(tunnel) : result;
}

int32_t StepBetween(Tunnel &tunnel) {
    if (tunnel.post.socket < 0)
        if (const int32_t result = BeginPost(tunnel); result != RTSP_SUCCESS) return result;
    if (const int32_t result = AwaitPost(tunnel); result != RTSP_SUCCESS) return result;
    return OpenLeg(tunnel, tunnel.post, tunnel.post.socket) ? RTSP_SUCCESS : RTSP_NO_MEMORY;
}

int32_t Step(Tunnel &tunnel) {
    if (tunnel.phase < Phase::kConnectPost) return StepGet(tunnel);
    return tunnel.phase == Phase::kConnectPost ? StepBetween(tunnel) : StepPost(tunnel);
}

// ---- the table ----

void *Open(void *context, int32_t socket, const char *host) {
    Tunnel *const tunnel = new (std::nothrow) Tunnel(PlanOf(context));
    if (tunnel == nullptr) return nullptr;
    CopyText(tunnel->host, host);
    uint8_t random[kCookieBytes];
    const bool isDrawn = getrandom(random, sizeof random, 0) == static_cast<ssize_t>(sizeof random);
    for (std::size_t at = 0; isDrawn && at < sizeof random; ++at)
        (void)std::snprintf(tunnel->cookie + 2 * at, 3, "%02x", random[at]);
    if (isDrawn && OpenLeg(*tunnel, tunnel->get, socket)) return tunnel;
    delete tunnel;
    return nullptr;
}

int32_t Handshake(void *stream) {
    Tunnel &tunnel = TunnelOf(stream);
    while (tunnel.phase != Phase::kOpen) {
        if (const int32_t result = Step(tunnel); result != RTSP_SUCCESS) return result;
        tunnel.phase = static_cast<Phase>(static_cast<int>(tunnel.phase) + 1);
    }
    return RTSP_SUCCESS;
}

int32_t Read(void *stream, void *bytes, uint32_t count) {
    Tunnel &tunnel = TunnelOf(stream);
    const uint32_t left = tunnel.headLeft;
    if (left == 0) return static_cast<int32_t>(ReadLeg(tunnel.get, bytes, count));
    const uint32_t taken = std::min(left, count);
    std::memcpy(bytes, tunnel.head + tunnel.headEnd - left, taken);
    tunnel.headLeft = left - taken;
    return static_cast<int32_t>(taken);
}

// What was taken is sent before more is; each text is encoded by itself, with its padding, as servers decode it.
int32_t Write(void *stream, const void *bytes, uint32_t count) {
    Tunnel &tunnel = TunnelOf(stream);
    const int32_t before = SendOutgoing(tunnel.outgoing, tunnel.post);
    if (before != RTSP_SUCCESS || count == 0) {
        errno = before == kWait ? EAGAIN : EPIPE;
        return before == RTSP_SUCCESS ? 0 : -1;
    }
    const auto taken = static_cast<int32_t>(std::min<std::size_t>(count, kMostAtOnce));
    char *encoded = nullptr;
    Base64Encode(static_cast<const uint8_t *>(bytes), taken, &encoded);
    if (encoded == nullptr) {
        errno = ENOMEM;
        return -1;
    }
    tunnel.outgoing = {HeapText(encoded), std::strlen(encoded), 0};
    if (SendOutgoing(tunnel.outgoing, tunnel.post) >= 0) return taken;
    errno = EPIPE;
    return -1;
}

uint32_t Pending(void *stream) {
    const Tunnel &tunnel = TunnelOf(stream);
    const uint32_t left = tunnel.headLeft;
    return left > 0 ? left : static_cast<uint32_t>(HasPending(tunnel.get.stream.get()));
}

pollfd WantedInHandshake(const Tunnel &tunnel) {
    const Leg &leg = tunnel.phase < Phase::kConnectPost ? tunnel.get : tunnel.post;
    const bool shakes = tunnel.phase == Phase::kShakeGet || tunnel.phase == Phase::kShakePost;
    const bool reads = tunnel.phase == Phase::kReadHead;
    const RTSPTapStreamWait below = shakes  ? RTSPTAP_STREAM_HANDSHAKE
                                    : reads ? RTSPTAP_STREAM_READING
                                            : RTSPTAP_STREAM_WRITING;
    return StreamWait(leg.stream.get(), leg.socket, below);
}

int32_t Wanted(void *stream, int32_t wait, int32_t *descriptor) {
    const Tunnel &tunnel = TunnelOf(stream);
    const Leg &leg = wait == RTSPTAP_STREAM_READING ? tunnel.get : tunnel.post;
    const pollfd waited = wait == RTSPTAP_STREAM_HANDSHAKE
                              ? WantedInHandshake(tunnel)
                              : StreamWait(leg.stream.get(), leg.socket, static_cast<RTSPTapStreamWait>(wait));
    *descriptor = waited.fd;
    return waited.events;
}

const char *Failure(void *stream) {
    const Tunnel &tunnel = TunnelOf(stream);
    if (tunnel.failure[0] != '\0') return tunnel.failure;
    for (const Leg *const leg : {&tunnel.get, &tunnel.post})
        if (leg->stream && *FailureOf(*leg->stream) != '\0') return FailureOf(*leg->stream);
    return "";
}

void Leave(void *stream) {
    for (const Leg *const leg : {&TunnelOf(stream).get, &TunnelOf(stream).post})
        if (leg->stream && leg->stream->maker->table.leave != nullptr)
            leg->stream->maker->table.leave(leg->stream->state);
}

// The first socket is the connection's.
void Close(void *stream) {
    const UniqueSocket post(TunnelOf(stream).post.socket);
    delete &TunnelOf(stream);
}

constexpr RTSPTapByteStream kTunnel = {
    .recordSize = sizeof(RTSPTapByteStream),
    .open = Open,
    .handshake = Handshake,
    .read = Read,
    .write = Write,
    .pending = Pending,
    .wanted = Wanted,
    .failure = Failure,
    .leave = Leave,
    .close = Close,
    .release = ReleasePlan,
};

} // namespace

StreamMaker *MakeTunnelMaker(StreamMaker *below, const char *requestUrl, const char *userAgent) {
    TunnelPlan *const plan = new (std::nothrow) TunnelPlan{};
    if (plan == nullptr) return nullptr;
    plan->below = below;
    if (below != nullptr) ++below->uses;
    const UrlParts url = SplitUrl(requestUrl);
    const std::string_view rest = After(requestUrl, "://");
    const std::string_view path = rest.substr(std::min(url.authority.size(), rest.size()));
    plan->path = DuplicateText(path.starts_with('/') ? path : "/");
    plan->host = DuplicateText(url.authority);
    plan->userAgent = DuplicateText(userAgent);
    StreamMaker *const maker =
        plan->path && plan->host && plan->userAgent ? ShareTable<StreamMaker>(kTunnel, plan) : nullptr;
    if (maker == nullptr) ReleasePlan(plan);
    return maker;
}

} // namespace rtsptap
