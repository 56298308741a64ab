// RTSPTapSetup and RTSPTapStart: streams come over the transport that the program wants, or over one that works.
// Application thread.
#include "platform/printers.h"
#include "platform/system.h"
#include "platform/text.h"
#include "platform/waiting.h"
#include "rtp/loop/passes.h"
#include "rtp/media_session.h"
#include "rtp/stream.h"
#include "rtsp/client/client.h"
#include "rtsp/client/connect.h"
#include "rtsp/client/exchange.h"
#include "rtsp/client/progress.h"
#include "rtsp/client/stream_sockets.h"
#include "rtsptap_extended.h"

#include <algorithm>
#include <cstdlib>
#include <span>
#include <utility>

namespace rtsptap {
namespace {

constexpr int64_t kPartingLimitMs = 3000; // how long a session that is left is waited for
constexpr uint32_t kLookMs = 5;           // between two looks for a first packet
constexpr uint32_t kNoChannel = 256;      // no frame has it

intptr_t HandleOf(const RTSPClient &client) { return reinterpret_cast<intptr_t>(&client); }

// Meanwhile no reply is waited for longer than a session that is left.
class PartingLimit {
public:
    explicit PartingLimit(RTSPClient &client) : client_(client) { client.replyCapMs = kPartingLimitMs; }
    ~PartingLimit() { client_.replyCapMs = kNoReplyCap; }
    PartingLimit(const PartingLimit &) = delete;
    PartingLimit &operator=(const PartingLimit &) = delete;

private:
    RTSPClient &client_;
};

// ---- streams, one after the other ----

void ChooseTransport(RTSPClient &client) {
    int64_t wanted = client.transport;
    if (wanted == RTSPTAP_TRANSPORT_DEFAULT && client.media.dataProto == DATA_PROTO_TCP)
        wanted = RTSPTAP_TRANSPORT_TCP;
    // Datagrams would be in the clear, or not get through.
    if (wanted == RTSPTAP_TRANSPORT_AUTOMATIC && KeepsToTcp(client)) wanted = RTSPTAP_TRANSPORT_TCP;
    client.mayFallBack =
        wanted == RTSPTAP_TRANSPORT_AUTOMATIC || (wanted == RTSPTAP_TRANSPORT_DEFAULT && client.isOpened);
    client.asksMulticast = wanted == RTSPTAP_TRANSPORT_MULTICAST;
    client.media.dataProto = wanted == RTSPTAP_TRANSPORT_TCP ? DATA_PROTO_TCP : DATA_PROTO_UDP;
    // Those that are not set up leave every channel to the others.
    for (RTSPStreamInfo *stream = client.media.streamList; stream != nullptr; stream = stream->next)
        SetChannel(*stream, kNoChannel);
}

int32_t SetUpOne(const CallTrace &trace, RTSPClient &client, RTSPStreamInfo &stream, int32_t number) {
    SetupParts parts{.asksMulticast = client.asksMulticast};
    int32_t result = SetUpStream(HandleOf(client), number, parts);
    if (result == RTSP_SUCCESS && parts.grantsTcp && client.media.dataProto == DATA_PROTO_UDP)
        result = trace.Fail(RTSP_BAD_RESPONSE, "EXIT : %s :The server grants another transport\n");
    if (result == RTSP_SUCCESS) return result;
    stream.isSetUp = false;
    SetChannel(stream, kNoChannel);
    return result;
}

int32_t SetUpWanted(const CallTrace &trace, RTSPClient &client) {
    int32_t number = 1;
    for (RTSPStreamInfo *stream = client.media.streamList; stream != nullptr; stream = stream->next, ++number) {
        if (!stream->isWanted || stream->isSetUp) continue;
        if (const int32_t result = SetUpOne(trace, client, *stream, number); result != RTSP_SUCCESS) return result;
    }
    return RTSP_SUCCESS;
}

// Of alternatives the first one (RTSPTapStreamDescription).
void Want(const MediaSession &media, int32_t streamNumber) {
    int32_t number = 1;
    for (RTSPStreamInfo *stream = media.streamList; stream != nullptr; stream = stream->next, ++number) {
        const bool isAsked = streamNumber == 0 ? stream->further.sameControlAs == 0 : streamNumber == number;
        stream->isWanted = isAsked || stream->isSetUp;
        if (isAsked) stream->isSetUp = false;
    }
}

// ---- from UDP to TCP ----

void ForgetSetups(const MediaSession &media) {
    for (RTSPStreamInfo *stream = media.streamList; stream != nullptr; stream = stream->next)
        stream->isSetUp = false;
}

void CloseDatagramSockets(const MediaSession &media) {
    for (RTSPStreamInfo *stream = media.streamList; stream != nullptr; stream = stream->next) {
        CloseRtpSocket(*stream);
        CloseRtcpSocket(*stream);
    }
}

// A session that is played has to be paused before its transport can be another one (RFC 2326, 10.4).
int32_t ChangeWithinSession(const CallTrace &trace, RTSPClient &client) {
    MediaSession &media = client.media;
    if (media.state == CLIENT_PLAYING_STATE) {
        const PartingLimit limit(client);
        const int32_t result = RTSPClientSendPauseRequest(HandleOf(client), 0, 0, nullptr, nullptr);
        if (result != RTSP_SUCCESS || media.state != CLIENT_PAUSE_STATE) return RTSP_INVALID_STATE;
    }
    CloseDatagramSockets(media);
    ForgetSetups(media);
    if (media.state == CLIENT_PAUSE_STATE) media.state = CLIENT_READY_STATE;
    media.dataProto = DATA_PROTO_TCP;
    return SetUpWanted(trace, client);
}

constexpr Step kPartingChecks[] = {CheckHandle};
constexpr Step kPartingSteps[] = {GenerateRequest, SendRequest, ReceiveReply, AnswerChallenge};

constexpr MethodDescriptor kParting{
    .functionName = "RTSPTapStart",
    .method = RTSP_TEARDOWN,
    .allowedStates = ~StateSet{0},
    .answersChallenge = false,
    .checks = kPartingChecks,
    .steps = kPartingSteps,
    .sending = "Client generating and sending TEARDOWN request message \n",
    .badState = "EXIT : %s : Client State is Not Valid for TEARDOWN Method.\n",
    .badHeaderList = "EXIT : %s :HeaderList of TearDown method is not valid\n",
    .notGenerated = "EXIT : %s :Request Message for TEARDOWN not generated \n",
};

// TEARDOWN, whatever the server says to it. The streams stay as they are described.
void LeaveSession(RTSPClient &client) {
    if (client.media.state >= CLIENT_READY_STATE) {
        const PartingLimit limit(client);
        Exchange exchange(kParting, {.clientHandle = HandleOf(client)});
        RunExchange(exchange);
    }
    CloseConnectionAndStreams(client.media);
    ForgetSetups(client.media);
    client.sessionId[0] = '\0';
    client.media.state = CLIENT_DESCRIBE_SENT_STATE;
    RenewKeepAlive(client);
}

int32_t BeginAfresh(const CallTrace &trace, RTSPClient &client) {
    LeaveSession(client);
    HeapText url = DuplicateText(client.requestUrl);
    NewConnection made;
    const int32_t result = url ? ConnectToServer(trace, client, static_cast<int>(client.connectLimitMs), made)
                               : trace.Fail(RTSP_NO_MEMORY, "EXIT : %s :Memory Allocation Failed\n");
    if (result != RTSP_SUCCESS) {
        LeaveServer(client);
        return result;
    }
    const Address server = client.media.server.Get();
    HeapText aggregate(std::exchange(client.aggregateUrl, nullptr)); // the server is the same one
    client.media.dataProto = DATA_PROTO_TCP;
    BecomeConnected(client, std::move(made), server, std::move(url));
    client.aggregateUrl = aggregate.release();
    return SetUpWanted(trace, client);
}

int32_t GoOverToTcp(const CallTrace &trace, RTSPClient &client) {
    RtpRtspInfoPrint("Going over from UDP to TCP \n");
    client.mayFallBack = false;
    const bool hasSession = client.media.state >= CLIENT_READY_STATE;
    const int32_t result = ChangeWithinSession(trace, client);
    const bool isLost = result == RTSP_NO_RESPONSE || result == RTSP_RESPONSE_TIMEOUT;
    return result == RTSP_SUCCESS || (!hasSession && !isLost) ? result : BeginAfresh(trace, client);
}

bool IsFaultOfTransport(const RTSPClient &client, int32_t result) {
    constexpr int32_t kUnsupportedTransport = 461;
    constexpr int32_t kSaidOtherwise[] = {400, 406, 415, 500, 501};
    constexpr int32_t kUnusable[] = {RTSP_BAD_RESPONSE, RTSP_BAD_NUMBER, RTSP_MULTICAST_FAILED, RTSP_SOCKET_FAILED,
                                     RTSP_INVALID_HEADER_LIST};
    const auto isOneOf = [](std::span<const int32_t> these, int32_t is) {
        return std::ranges::find(these, is) != these.end();
    };
    if (isOneOf(kUnusable, result)) return true;
    if (result != RTSP_CLIENT_ERROR && result != RTSP_SERVER_ERROR) return false;
    return client.lastStatus == kUnsupportedTransport ||
           (isOneOf(kSaidOtherwise, client.lastStatus) && client.media.dialect.Permits(Rule::kUdpRefused));
}

// ---- the first packet ----

// 0; RTSPTAP_NO_MEDIA when none comes in time; RTSPTAP_INTERRUPTED.
int32_t Listen(const CallTrace &trace, RTSPClient &client, uint32_t packetsBefore) {
    const uint32_t interruptsBefore = client.media.interrupts;
    const uint64_t deadlineMs = MonotonicMs() + static_cast<uint64_t>(client.silenceLimitMs);
    while (client.media.packetCounter == packetsBefore) {
        if (client.media.interrupts != interruptsBefore || MustGiveUp())
            return trace.Fail(RTSPTAP_INTERRUPTED, "EXIT : %s :Interrupted\n");
        if (MonotonicMs() >= deadlineMs) return trace.Fail(RTSPTAP_NO_MEDIA, "EXIT : %s :No packet comes\n");
        const bool servesToo = IsThreadless(client.media);
        if (!servesToo || IsOnFiber()) WaitMs(kLookMs);
        if (servesToo) ServeSession(client.media, IsOnFiber() ? 0 : kLookMs);
    }
    return RTSP_SUCCESS;
}

int32_t PlayAndListen(const CallTrace &trace, RTSPClient &client, const RTSPTapPlayRequest *request,
                      RTSPTapPlayReply *reply) {
    const uint32_t packetsBefore = client.media.packetCounter;
    if (const int32_t result = RTSPTapPlay(HandleOf(client), 0, request, reply); result != RTSP_SUCCESS)
        return result;
    return client.silenceLimitMs != 0 ? Listen(trace, client, packetsBefore) : RTSP_SUCCESS;
}

} // namespace
} // namespace rtsptap

using namespace rtsptap;

int32_t RTSPTapSetup(intptr_t clientHandle, int32_t streamNumber) {
    const ClientTrace trace(__func__, clientHandle);
    RTSPClient *const client = LiveClient(clientHandle);
    if (client == nullptr || streamNumber < 0)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    if (const int32_t result = RefuseWhilePending(trace, *client); result != RTSP_SUCCESS) return result;
    if (client->connected != 1)
        return trace.Fail(RTSP_NOT_CONNECTED, "EXIT : %s :Client is created but is not connected to server\n");
    if (streamNumber > client->media.streamCount)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid Stream Number\n");
    const uint32_t state = client->media.state;
    if (state != CLIENT_DESCRIBE_SENT_STATE && state != CLIENT_READY_STATE)
        return trace.Fail(RTSP_INVALID_STATE, "EXIT : %s :Client State is Not Valid for SETUP Method.\n");
    if (state == CLIENT_DESCRIBE_SENT_STATE) ChooseTransport(*client);
    Want(client->media, streamNumber);
    const int32_t result = SetUpWanted(trace, *client);
    return client->mayFallBack && IsFaultOfTransport(*client, result) ? GoOverToTcp(trace, *client) : result;
}

int32_t RTSPTapStart(intptr_t clientHandle, const RTSPTapPlayRequest *request, RTSPTapPlayReply *reply) {
    const ClientTrace trace(__func__, clientHandle);
    RTSPClient *const client = LiveClient(clientHandle);
    if (client == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid client handle\n");
    if (const int32_t result = RefuseWhilePending(trace, *client); result != RTSP_SUCCESS) return result;
    if (client->media.state == CLIENT_DESCRIBE_SENT_STATE)
        if (const int32_t result = RTSPTapSetup(clientHandle, 0); result != RTSP_SUCCESS) return result;
    const int32_t result = PlayAndListen(trace, *client, request, reply);
    if (result != RTSPTAP_NO_MEDIA || !client->mayFallBack) return result;
    Want(client->media, -1);
    if (const int32_t failure = GoOverToTcp(trace, *client); failure != RTSP_SUCCESS) return failure;
    return PlayAndListen(trace, *client, request, reply);
}
