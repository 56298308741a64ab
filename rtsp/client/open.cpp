// RTSPTapOpen: from an URL to a session whose description is known. Application thread.
#include "platform/address.h"
#include "platform/connecting.h"
#include "platform/printers.h"
#include "platform/system.h"
#include "platform/text.h"
#include "platform/url.h"
#include "platform/waiting.h"
#include "rtp/stream.h"
#include "rtsp/client/client.h"
#include "rtsp/client/connect.h"
#include "rtsp/client/progress.h"
#include "rtsptap_extended.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <span>
#include <utility>

namespace rtsptap {

void LeaveServer(RTSPClient &client) {
    client.connected = 0;
    client.media.state = CLIENT_INIT_STATE;
    EndReceptions(client.media, RTSPTAP_CONNECTION_CLOSED);
    client.media.streamCount = 0;
    CloseConnectionAndStreams(client.media);
    NoteStreamFailure(client);
    EndStreams(client.media);
    client.sessionId[0] = '\0';
    client.authentication.required = 0;     // of another server, as far as we know
    client.keepAlive.method = RTSP_OPTIONS; // the same
    RenewKeepAlive(client);
    SettleSession(client.media);
}

namespace {

struct Scheme {
    const char *name;
    uint16_t port;
    bool isSecure;
    bool isTunnelled; // requests then name rtsp
};

constexpr Scheme kSchemes[] = {
    {"rtsp", 554, false, false},
    {"rtsps", 322, true, false}, // RFC 7826, 19
    {"rtsph", 80, false, true},
    {"rtspsh", 443, true, true},
};

struct Target : ServerUrl {
    const Scheme *scheme = nullptr;
};

constexpr int kMostRedirects = 5;
constexpr int64_t kOptionsLimitMs = 5000; // of a server that does not answer OPTIONS
constexpr int32_t kVideoBufferBytes = 1 << 20;
constexpr int32_t kAudioBufferBytes = 1 << 18;

UrlFault ReadTarget(const char *text, Target &url) {
    UrlFault fault = UrlFault::kOtherScheme;
    for (const Scheme &scheme : kSchemes) {
        if (fault != UrlFault::kOtherScheme) break;
        url.scheme = &scheme;
        fault = ReadServerUrl(text, scheme.name, scheme.port, url);
    }
    if (fault != UrlFault::kNone || !url.scheme->isTunnelled) return fault;
    // As the server sees it: one of rtsp, on the port that it is reached by.
    char *const request = url.request.get();
    const std::size_t surplus = strlen(url.scheme->name) - strlen(kSchemes[0].name);
    memmove(request + strlen(kSchemes[0].name), request + strlen(url.scheme->name),
            strlen(request) + 1 - surplus - strlen(kSchemes[0].name));
    return fault;
}

// Never the URL in a text: it may hold a password.
int32_t ReadUrl(const CallTrace &trace, const char *text, Target &url) {
    switch (ReadTarget(text, url)) {
    case UrlFault::kNone:
        return RTSP_SUCCESS;
    case UrlFault::kOtherScheme:
        return trace.Fail(RTSPTAP_OTHER_SCHEME, "EXIT : %s :The URL is not one of rtsp\n");
    case UrlFault::kNoMemory:
        return trace.Fail(RTSP_NO_MEMORY, "EXIT : %s :Memory Allocation Failed\n");
    case UrlFault::kUnreadable:
        break;
    }
    return trace.Fail(RTSPTAP_BAD_URL, "EXIT : %s :The URL is not readable\n");
}

int32_t FailConnecting(const CallTrace &trace) {
    constexpr int kShort[] = {EMFILE, ENFILE, ENOBUFS, ENOMEM};
    const int error = LastError();
    const ScopeExit restore([error] { SetLastError(error); });
    if (std::ranges::find(kShort, error) != std::end(kShort))
        return trace.Fail(RTSP_SOCKET_FAILED, "EXIT : %s :RTSP Client socket creation failed\n");
    return trace.Fail(RTSP_CONNECT_FAILED, "EXIT : %s :Connection Error \n");
}

// With the text of the address that answered, where it is asked for.
int32_t Connect(const CallTrace &trace, RTSPClient &client, const Target &to, std::span<char> text = {}) {
    const StreamPlan plan = {to.host, to.request.get(), to.scheme->isSecure, to.scheme->isTunnelled};
    if (const int32_t result = ChooseStream(trace, client, plan); result != RTSP_SUCCESS) return result;
    const AddressList addresses = FindAddresses(to.host, to.port, static_cast<int>(client.connectLimitMs));
    if (addresses.count == 0) return trace.Fail(RTSPTAP_HOST_NOT_FOUND, "EXIT : %s :The host has no address\n");
    HeapText requestUrl = DuplicateText(to.request.get());
    if (!requestUrl) return trace.Fail(RTSP_NO_MEMORY, "EXIT : %s :Memory Allocation Failed\n");
    Address address;
    UniqueSocket socket(ConnectToFirst(addresses, static_cast<int>(client.connectLimitMs), address));
    if (!socket.IsOpen()) return FailConnecting(trace);
    NewConnection made;
    if (const int32_t result = OpenStream(trace, client, socket.Get(), made.stream); result != RTSP_SUCCESS)
        return result;
    made.socket = socket.Release();
    client.sessionName[0] = '\0';
    client.isOpened = true;
    client.media.dataProto = KeepsToTcp(client) ? DATA_PROTO_TCP : DATA_PROTO_UDP;
    if (!text.empty()) WriteAddress(address, text);
    BecomeConnected(client, std::move(made), address, std::move(requestUrl));
    return RTSP_SUCCESS;
}

using Method = int32_t (*)(intptr_t clientHandle, intptr_t headerList, char *responseBuff, int32_t *responseSize);

int32_t Ask(RTSPClient &client, Method method) {
    return method(reinterpret_cast<intptr_t>(&client), 0, nullptr, nullptr);
}

int32_t AskOptions(RTSPClient &client) {
    client.replyCapMs = kOptionsLimitMs;
    const ScopeExit restore([&client] { client.replyCapMs = kNoReplyCap; });
    return Ask(client, RTSPClientSendOptionsRequest);
}

bool LeadsElsewhere(const RTSPClient &client, int32_t result) {
    constexpr int32_t kStatuses[] = {301, 302, 303, 307, 308};
    return result == RTSP_REDIRECTED && client.location != nullptr &&
           std::ranges::find(kStatuses, client.lastStatus) != std::end(kStatuses);
}

// A server that refuses OPTIONS may describe all the same; what one that has not answered sends later would be
// taken for another reply, so that connection is of no more use.
int32_t Describe(const CallTrace &trace, RTSPClient &client, const Target &to) {
    int32_t result = Connect(trace, client, to);
    if (result != RTSP_SUCCESS) return result;
    result = AskOptions(client);
    if (LeadsElsewhere(client, result)) return result;
    const bool isUsable = result == RTSP_SUCCESS || result == RTSP_CLIENT_ERROR || result == RTSP_SERVER_ERROR ||
                          result == RTSP_REDIRECTED || result == RTSP_UNAUTHORIZED ||
                          result == RTSPTAP_UNKNOWN_CHALLENGE;
    if (isUsable) result = Ask(client, RTSPClientSendDescribeRequest);
    if (isUsable && result != RTSP_NO_RESPONSE) return result;
    LeaveServer(client);
    result = Connect(trace, client, to);
    return result == RTSP_SUCCESS ? Ask(client, RTSPClientSendDescribeRequest) : result;
}

// To where the last reply points. What the program gave for one host is for no other (RFC 7235, 6.4), and what was
// to go through TLS goes nowhere in the clear.
int32_t FollowRedirection(const CallTrace &trace, RTSPClient &client, Target &to) {
    const HeapText location = JoinUrl(to.request.get(), client.location);
    if (!location) return trace.Fail(RTSP_NO_MEMORY, "EXIT : %s :Memory Allocation Failed\n");
    Target next;
    if (const int32_t result = ReadUrl(trace, location.get(), next); result != RTSP_SUCCESS) return result;
    const bool losesTls = to.scheme->isSecure && !next.scheme->isSecure;
    if (losesTls || !EqualIgnoringCase(next.host, to.host)) client.authentication.isWithheld = true;
    LeaveServer(client);
    to = std::move(next);
    return RTSP_SUCCESS;
}

int32_t OpenUrl(const CallTrace &trace, RTSPClient &client, Target &to) {
    for (int redirects = 0;; ++redirects) {
        const int32_t result = Describe(trace, client, to);
        if (!LeadsElsewhere(client, result)) return result;
        if (redirects == kMostRedirects)
            return trace.Fail(RTSPTAP_TOO_MANY_REDIRECTS, "EXIT : %s :The server redirects again and again\n");
        if (const int32_t failure = FollowRedirection(trace, client, to); failure != RTSP_SUCCESS) return failure;
    }
}

void UseDefaultBuffers(MediaSession &media) {
    if (media.videoBufferSize < 1) media.videoBufferSize = kVideoBufferBytes;
    if (media.audioBufferSize < 1) media.audioBufferSize = kAudioBufferBytes;
}

// The client has left whom it was connected to, and has the URL's credentials. Null with a `result` otherwise.
RTSPClient *Prepare(const CallTrace &trace, intptr_t clientHandle, const char *url, Target &to, int32_t &result) {
    RTSPClient *const client = LiveClient(clientHandle);
    result = RTSP_INVALID_ARGUMENT;
    if (client == nullptr || url == nullptr) {
        trace.Fail(result, "EXIT : %s :Invalid input argument\n");
        return nullptr;
    }
    if (result = RefuseWhilePending(trace, *client); result != RTSP_SUCCESS) return nullptr;
    if (result = ReadUrl(trace, url, to); result != RTSP_SUCCESS) return nullptr;
    ReleaseRetiredStreams(client->media);
    LeaveServer(*client);
    UseDefaultBuffers(client->media);
    client->authentication.isWithheld = false;
    if (to.hasUser) StoreCredentials(client->credentials, to.user, to.password);
    explicit_bzero(to.password, sizeof to.password);
    return client;
}

} // namespace
} // namespace rtsptap

using namespace rtsptap;

int32_t RTSPTapOpen(intptr_t clientHandle, const char *url) {
    const ClientTrace trace(__func__, clientHandle);
    Target to;
    int32_t result = RTSP_SUCCESS;
    RTSPClient *const client = Prepare(trace, clientHandle, url, to, result);
    if (client == nullptr) return result;
    result = OpenUrl(trace, *client, to);
    if (result != RTSP_SUCCESS) LeaveServer(*client);
    return result;
}

int32_t RTSPTapConnect(intptr_t clientHandle, const char *url, char *address) {
    constexpr std::size_t kAddressBytes = 64;
    const ClientTrace trace(__func__, clientHandle);
    Target to;
    int32_t result = RTSP_SUCCESS;
    RTSPClient *const client = Prepare(trace, clientHandle, url, to, result);
    if (client == nullptr) return result;
    return Connect(trace, *client, to, {address, address != nullptr ? kAddressBytes : 0});
}
