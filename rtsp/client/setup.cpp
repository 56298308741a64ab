// SETUP: one stream's transport, from local ports to what the server grants. Application thread.
#include "platform/system.h"
#include "platform/text.h"
#include "rtp/media_session.h"
#include "rtp/stream.h"
#include "rtsp/client/client.h"
#include "rtsp/client/exchange.h"
#include "rtsp/client/protection.h"
#include "rtsp/client/stream_sockets.h"
#include "rtsp/message/header_list.h"
#include "rtsp/message/request.h"
#include "rtsp/message/response.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

namespace rtsptap {
namespace {

constexpr char kTransport[] = "Transport";
constexpr std::size_t kTransportBytes = 58; // the longest value that we build, with its terminator

// The user's value goes out unchanged and leaves the list, which can serve the next stream.
void AddUserTransport(Exchange &exchange) {
    const intptr_t list = exchange.arguments.headerList;
    const RTSPHeaderStruct *const header = GetUserAddedHeaderValue(list, kTransport);
    AddRequestHeader(exchange.client->requestMsg, kTransport, header->headerValue);
    RTSPRemoveHeaderFromList(list, kTransport);
}

void AddOwnTransport(Exchange &exchange) {
    const char *const profile = exchange.setup->profile;
    const char *const used = profile != nullptr ? profile : "RTP/AVP";
    char value[kTransportBytes] = {};
    if (exchange.setup->asksMulticast) {
        const auto hops = static_cast<int>(exchange.client->media.multicast.hops);
        snprintf(value, sizeof value, hops > 0 ? "%s;multicast;ttl=%d" : "%s;multicast", used, hops);
    } else if (exchange.client->media.dataProto == DATA_PROTO_UDP) {
        const int port = exchange.setup->localPort;
        const char *const lower = profile != nullptr ? "" : "/UDP"; // of protected packets nobody writes it
        snprintf(value, sizeof value, "%s%s;unicast;client_port=%d-%d", used, lower, port, port + 1);
        exchange.setup->stream->clientPort = exchange.setup->localPort;
    } else {
        const auto channel = static_cast<int32_t>(exchange.setup->stream->interleavedChannel);
        snprintf(value, sizeof value, "%s/TCP;unicast;interleaved=%d-%d", used, channel, channel + 1);
    }
    AddRequestHeader(exchange.client->requestMsg, kTransport, value);
}

int32_t TakeUserTransport(Exchange &exchange) {
    if (exchange.arguments.headerList == 0) return RTSP_SUCCESS;
    RTSPHeaderStruct *const header = GetUserAddedHeaderValue(exchange.arguments.headerList, kTransport);
    if (header == nullptr || header->headerValue == nullptr) return RTSP_SUCCESS;
    const std::string_view value = header->headerValue;
    if (exchange.client->media.dataProto == DATA_PROTO_TCP && !Contains(value, "interleaved="))
        return exchange.trace.Fail(RTSP_INVALID_HEADER_LIST,
                                   "EXIT : %s :Transport header of HeaderList is not valid\n");
    if (const std::string_view port = After(value, "client_port="); port.data() != nullptr) {
        exchange.setup->userClientPort = static_cast<uint16_t>(LeadingNumber(port));
        if (exchange.setup->userClientPort == 0)
            return exchange.trace.Fail(RTSP_BAD_NUMBER,
                                       "EXIT : %s :Problem in converting Ascii to Integer value of client_port\n");
    }
    header->isUsed = 1; // the request does not copy it from the list: it comes last
    exchange.setup->hasUserTransport = true;
    return RTSP_SUCCESS;
}

int32_t PrepareTransport(Exchange &exchange) {
    const ScopedLock ports(gblRTSPClientListLock);
    RTSPStreamInfo &stream = *exchange.setup->stream;
    if (exchange.client->media.dataProto == DATA_PROTO_UDP && !exchange.setup->asksMulticast) {
        if (const int32_t result = OpenUdpPair(exchange); result != RTSP_SUCCESS) return result;
    } else if (exchange.setup->protection != nullptr || stream.protection != nullptr) {
        CloseRtpSocket(stream); // the thread of a session before ends with them
        CloseRtcpSocket(stream);
    }
    SetProtection(stream, std::move(exchange.setup->protection));
    exchange.setup->hasUserTransport ? AddUserTransport(exchange) : AddOwnTransport(exchange);
    return RTSP_SUCCESS;
}

constexpr int kInterleavedLineNumber = 2534; // what the milestone line has always said

// "=6970", or "=", within its own parameter.
bool IsNoPair(std::string_view ports) {
    const std::string_view parameter = ports.substr(0, ports.find_first_of(";,"));
    return static_cast<uint16_t>(LeadingNumber(After(parameter, "-"))) == 0;
}

// Kept: the server's RTP port is the second number of the range less one, whatever the first says.
int32_t TakeServerPort(Exchange &exchange, std::string_view value) {
    const std::string_view ports = After(value, "server_port");
    if (ports.data() == nullptr) return RTSP_SUCCESS;
    if (IsNoPair(ports) && exchange.client->media.dialect.Permits(Rule::kSinglePort)) {
        exchange.setup->stream->serverPort = static_cast<uint16_t>(LeadingNumber(After(ports, "=")));
        return RTSP_SUCCESS;
    }
    const auto rtcpPort = static_cast<uint16_t>(LeadingNumber(After(ports, "-")));
    if (rtcpPort == 0)
        return exchange.trace.Fail(RTSP_BAD_NUMBER,
                                   "EXIT : %s :Problem in converting Ascii to Integer value of server_port\n");
    exchange.setup->stream->serverPort = static_cast<uint16_t>(rtcpPort - 1);
    return RTSP_SUCCESS;
}

// source=192.168.1.20
int32_t TakeSource(const Exchange &exchange, std::string_view value) {
    RTSPStreamInfo &stream = *exchange.setup->stream;
    const MediaSession &media = exchange.client->media;
    const std::string_view text = After(value, "source=");
    char host[64] = {};
    char own[64] = {};
    CopyText(host, text.substr(0, text.find_first_of(";,")));
    const Address server = media.server.Get();
    WriteAddress(server, own);
    const Address source = ReadAnyAddress(host, static_cast<uint16_t>(stream.serverPort + 1));
    const bool isAnother = source.length == server.length && !IsGroup(source) && std::string_view(host) != own;
    const bool isAsked = media.dataProto == DATA_PROTO_UDP && !stream.isMulticast && stream.serverPort != 0;
    if (!isAnother || !isAsked || !media.dialect.Permits(Rule::kAnnouncedSource)) return RTSP_SUCCESS;
    stream.reportsTo = source;
    return FilterSources(exchange);
}

bool IsOfAnother(const RTSPStreamInfo &stream, uint32_t channel) {
    const RTSPStreamInfo *other = stream.session->streamList;
    while (other != nullptr && (other == &stream || !other->isSetUp || other->interleavedChannel != channel))
        other = other->next;
    return other != nullptr;
}

void TakeChannel(Exchange &exchange, std::string_view value) {
    std::string_view channel = After(value, "interleaved");
    RTSPStreamInfo &stream = *exchange.setup->stream;
    stream.channelIsUnsaid = channel.data() == nullptr;
    if (channel.data() == nullptr) return;
    if (!channel.empty()) channel.remove_prefix(1); // the '='
    const auto number = static_cast<uint32_t>(LeadingNumber(channel));
    if (IsOfAnother(stream, number) && stream.session->dialect.Permits(Rule::kOthersChannel)) return;
    SetChannel(stream, number);
    RtpRtspInfoPrint("%s(%d) Interleaved: 0x%02x\n", exchange.trace.Function(), kInterleavedLineNumber, number);
}

int32_t TakeSession(Exchange &exchange) {
    const char *const value = GetResponseHeader(exchange.client->responseMsg, "Session");
    if (value == nullptr) return RTSP_SUCCESS;
    RTSPClient &client = *exchange.client;
    const Dialect &dialect = client.media.dialect;
    client.media.connection.tending.sessionTimeoutMs = int64_t{SessionTimeout(value)} * 1000;
    const std::string_view session = SessionToken(value, dialect);
    const bool isTooLong = session.size() >= sizeof client.sessionId ||
                           (session.size() > kSessionIdLength && !dialect.Permits(Rule::kLongSession));
    if (isTooLong) return exchange.trace.Fail(RTSP_BAD_RESPONSE, "EXIT : %s : Too long SessionID received \n");
    const bool isAnother = exchange.setup->joinsSession && client.sessionId[0] != 0 && session != client.sessionId;
    if (isAnother && dialect.Permits(Rule::kOtherSession)) return RTSP_SUCCESS;
    CopyText(client.sessionId, session);
    return RTSP_SUCCESS;
}

// ---- a Transport value as devices write it, put right in its place ----

// Where the parameter's name stands, with letters of any case; npos: nowhere.
std::size_t FindParameter(std::string_view value, std::string_view name) {
    for (std::size_t at = 0; at + name.size() <= value.size(); ++at)
        if (EqualIgnoringCase(value.substr(at, name.size()), name)) return at;
    return value.npos;
}

constexpr std::string_view kPadding = " \t\"";

// " =", "= " or "=\"" at the front.
bool IsPadded(std::string_view text) {
    const std::string_view value = text.substr(std::min(text.find_first_not_of(" \t"), text.size()));
    return value.starts_with('=') && (value.size() < text.size() || value.find_first_of(kPadding) == 1);
}

// RTP/AVP;unicast;client_port=6970-6971,RTP/AVP;multicast
void KeepFirstTransport(char *text, const Dialect &dialect) {
    for (char *comma = strchr(text, ','); comma != nullptr; comma = strchr(comma + 1, ',')) {
        const std::string_view next = WithoutBlanks(comma + 1);
        if (!EqualIgnoringCase(next.substr(0, 4), "RTP/") || !dialect.Permits(Rule::kSeveralTransports)) continue;
        *comma = '\0';
        return;
    }
}

void PutTransportRight(char *text, const Dialect &dialect) {
    bool hasOtherCase = false;
    bool isPadded = false;
    for (const std::string_view name : {"multicast", "destination", "port", "server_port", "interleaved"}) {
        const std::string_view value = text;
        const std::size_t at = FindParameter(value, name);
        if (at == value.npos) continue;
        hasOtherCase = hasOtherCase || !Contains(value, name);
        isPadded = isPadded || IsPadded(value.substr(at + name.size()));
    }
    char *const end = text + strlen(text);
    if (hasOtherCase && dialect.Permits(Rule::kTransportInAnyCase)) std::transform(text, end, text, LowerCase);
    if (isPadded && dialect.Permits(Rule::kBlanksInTransport))
        *std::remove_if(text, end, [](char c) { return kPadding.find(c) != kPadding.npos; }) = '\0';
}

int32_t ApplyTransport(Exchange &exchange) {
    char *const header = GetResponseHeader(exchange.client->responseMsg, "Transport");
    exchange.setup->stream->channelIsUnsaid = true;
    if (header == nullptr) return RTSP_SUCCESS;
    KeepFirstTransport(header, exchange.client->media.dialect);
    PutTransportRight(header, exchange.client->media.dialect);
    const std::string_view value = header;
    exchange.setup->grantsTcp = Contains(value, "RTP/AVP/TCP") || Contains(value, "interleaved=");
    if (exchange.setup->asksMulticast || (Contains(value, "multicast") && Contains(value, "destination")))
        if (const int32_t result = JoinMulticast(exchange, value); result != RTSP_SUCCESS) return result;
    if (const int32_t result = TakeServerPort(exchange, value); result != RTSP_SUCCESS) return result;
    TakeChannel(exchange, value);
    return TakeSource(exchange, value);
}

int32_t SelectStream(Exchange &exchange) {
    const int32_t number = exchange.arguments.streamNumber;
    exchange.setup->stream = FindStreamByNumber(exchange.client->media, number);
    if (exchange.setup->stream == nullptr)
        return exchange.trace.Fail(RTSP_INVALID_ARGUMENT,
                                   "EXIT : %s :Not able to get stream info from list for Stream Number\n");
    exchange.setup->joinsSession = number > 1 && exchange.client->media.state == CLIENT_READY_STATE;
    SetChannel(*exchange.setup->stream, (static_cast<uint32_t>(number) - 1) * 2); // for UDP, too
    return RTSP_SUCCESS;
}

// Kept: the state is set before the headers are looked at, so what fails behind this leaves it READY.
int32_t BecomeReady(Exchange &exchange) {
    EnterState(exchange);
    RtpRtspInfoPrint("Successful response of SETUP is received from server .... \n");
    exchange.setup->stream->isSetUp = true;
    return RTSP_SUCCESS;
}

// Whichever stream begins a session: the others name it. The base interface goes by the streams' numbers.
int32_t NameSession(Exchange &exchange) {
    RTSPClient &client = *exchange.client;
    if (!exchange.setup->namesSession) return RTSP_SUCCESS;
    const bool isUnderWay = client.media.state == CLIENT_READY_STATE && client.sessionId[0] != '\0';
    exchange.setup->joinsSession = isUnderWay;
    if (!isUnderWay)
        RemoveRequestHeader(*client.requestMsg, "Session");
    else if (PutRequestHeader(*client.requestMsg, "Session", client.sessionId) != RTSP_SUCCESS)
        return exchange.trace.Fail(RTSP_REQUEST_NOT_BUILT, "EXIT : %s :The session could not be named\n");
    return RTSP_SUCCESS;
}

// From here on a failure closes these sockets of the stream.
template <Undo undo> int32_t OnFailureClose(Exchange &exchange) {
    exchange.setup->undo = undo;
    return RTSP_SUCCESS;
}

void CloseSockets(Exchange &exchange) {
    const SetupParts &parts = *exchange.setup;
    if (parts.undo == Undo::kNothing) return;
    CloseRtpSocket(*parts.stream);
    if (parts.undo == Undo::kBothSockets && exchange.client->media.dataProto == DATA_PROTO_UDP)
        CloseRtcpSocket(*parts.stream);
}

constexpr Step kChecks[] = {CheckHandleAndStream, CheckConnected,    CheckState,   CheckStreamNumber,
                            CheckHeaderList,      TakeUserTransport, SelectStream, ChooseProtection};
constexpr Step kSteps[] = {GenerateRequest,
                           NameSession,
                           PrepareTransport, // closes what it opened when it fails
                           OnFailureClose<Undo::kBothSockets>,
                           SendRequest,
                           ReceiveReply,
                           AnswerChallenge,
                           ParseReply,
                           OnFailureClose<Undo::kRtpSocket>,
                           ClassifyStatus,
                           OnOk<BecomeReady>,
                           OnFailureClose<Undo::kBothSockets>,
                           OnOk<TakeSession>,
                           OnFailureClose<Undo::kRtpSocket>,
                           OnOk<ApplyTransport>,
                           CopyReply};

consteval MethodDescriptor SetupRow(const char *functionName, bool answersChallenge) {
    return {
        .functionName = functionName,
        .method = RTSP_SETUP,
        .allowedStates = States({CLIENT_DESCRIBE_SENT_STATE, CLIENT_READY_STATE}),
        .answersChallenge = answersChallenge,
        .checks = kChecks,
        .steps = kSteps,
        .sending = "Client generating and sending SETUP request message \n",
        .badState = "EXIT : %s :Client State is Not Valid for SETUP Method.\n",
        .badHeaderList = "EXIT : %s :HeaderList of Setup method is not valid\n",
        .notGenerated = "EXIT : %s :Request Message for SETUP not generated \n",
        .undo = CloseSockets,
    };
}

constexpr MethodDescriptor kSetup = SetupRow("RTSPClientSendSetupRequest", false);
constexpr MethodDescriptor kSetupByTransport = SetupRow("RTSPTapSetup", true);

} // namespace

int32_t SetUpStream(intptr_t clientHandle, int32_t number, SetupParts &parts) {
    parts.namesSession = true;
    Exchange exchange(kSetupByTransport, {.clientHandle = clientHandle, .streamNumber = number});
    exchange.setup = &parts;
    return RunExchange(exchange);
}

} // namespace rtsptap

using namespace rtsptap;

int32_t RTSPClientSendSetupRequest(intptr_t clientHandle, int32_t streamCount, intptr_t setupHeaderList,
                                   char *responseBuff, int32_t *responseSize) {
    SetupParts parts;
    Exchange exchange(kSetup, {clientHandle, streamCount, setupHeaderList, responseBuff, responseSize});
    exchange.setup = &parts;
    return RunExchange(exchange);
}
