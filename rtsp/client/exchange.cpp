#include "rtsp/client/exchange.h"

#include "dialect/dialect.h"
#include "platform/text.h"
#include "platform/waiting.h"
#include "rtp/interleaved/interleaved_service.h"
#include "rtp/interleaved/tending.h"
#include "rtp/loop/passes.h"
#include "rtp/media_session.h"
#include "rtp/stream.h"
#include "rtsp/client/client.h"
#include "rtsp/client/connect.h"
#include "rtsp/client/progress.h"
#include "rtsp/message/authentication.h"
#include "rtsp/message/header_list.h"
#include "rtsp/message/methods.h"
#include "rtsp/message/response.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <poll.h>
#include <utility>

namespace rtsptap {

namespace {

int32_t RunSteps(std::span<const Step> steps, Exchange &exchange) {
    for (const Step step : steps)
        if (const int32_t result = step(exchange); result != RTSP_SUCCESS) return result;
    return RTSP_SUCCESS;
}

void LogArguments(const Exchange &exchange) {
    const ExchangeArguments &arguments = exchange.arguments;
    DebugPrint(kDebugEntry, "\tInput: clientHandle         : %d\n", PrintableHandle(arguments.clientHandle));
    DebugPrint(kDebugEntry, "\tInput: streamCount            : %d\n", arguments.streamNumber);
    DebugPrint(kDebugEntry, "\tInput: headerList        : %d\n", PrintableHandle(arguments.headerList));
    DebugPrint(kDebugEntry, "\tInput: responseBuff          : %d\n", PrintableHandle(arguments.responseBuff));
    DebugPrint(kDebugEntry, "\tInput: responseSize          : %d\n", PrintableHandle(arguments.responseSize));
}

} // namespace

Exchange::~Exchange() {
    if (client == nullptr) return;
    freeRequestMsg(client->requestMsg);
    client->requestMsg = nullptr;
    ReleaseResponse(*client);
    EndAwaiting(client->media.connection);
    KeepReply(*client, std::move(reply));
    RenewKeepAlive(*client);
    SettleSession(client->media);
}

int32_t RunExchange(Exchange &exchange) {
    RtpRtspInfoPrint("%s", exchange.method.sending);
    LogArguments(exchange);
    int32_t result = RunSteps(exchange.method.checks, exchange);
    if (result == RTSP_SUCCESS) result = RunSteps(exchange.method.steps, exchange);
    if (result != RTSP_SUCCESS && exchange.method.undo != nullptr) exchange.method.undo(exchange);
    return result;
}

void KeepReply(RTSPClient &client, RecvBufferPtr reply) {
    if (reply == nullptr || client.lastReply != nullptr) return;
    ShrinkRecvBuffer(*reply);
    client.lastReply = reply.release();
}

void ReleaseResponse(RTSPClient &client) {
    const ResponseMsgPtr released(std::exchange(client.responseMsg, nullptr));
}

Requester RequesterOf(RTSPClient &client, int32_t index) {
    const RTSPStreamInfo *const stream = FindStreamByNumber(client.media, index + 1);
    return {.requestUrl = client.requestUrl != nullptr ? client.requestUrl : "",
            .aggregateUrl = client.aggregateUrl,
            .controlUrl = stream != nullptr ? stream->controlUrl.get() : nullptr,
            .streamCount = client.media.streamCount,
            .sessionId = client.sessionId,
            .userAgent = client.userAgent,
            .authentication = client.authentication,
            .serverUrl = client.requestUrl != nullptr ? client.requestUrl : "",
            .credentials = client.credentials.areSet ? &client.credentials : nullptr,
            .dialect = client.media.dialect,
            .cSeq = client.cSeq};
}

int32_t GenerateRequest(Exchange &exchange) {
    RTSPClient &client = *exchange.client;
    const uint32_t number = exchange.method.method;
    const int32_t index = FindMethod(number)->addressesStream ? exchange.arguments.streamNumber - 1 : 0;
    client.requestMsg =
        GenerateRequestMessage(RequesterOf(client, index), number, exchange.arguments.headerList, index);
    if (client.requestMsg != nullptr) return RTSP_SUCCESS;
    return exchange.trace.Fail(RTSP_REQUEST_NOT_BUILT, exchange.method.notGenerated);
}

namespace {

// 0 when the program has a CSeq of its own in the request, too: a server may answer with either.
uint32_t SequenceNumber(const RequestMsg &request) {
    const auto isNumber = [](const RTSPHeaderStruct &header) {
        return header.headerName != nullptr && EqualIgnoringCase(header.headerName, "CSeq");
    };
    return std::ranges::count_if(request.headers, isNumber) == 1 ? request.cSeq : 0;
}

int ReplyLimit(const Exchange &exchange) {
    const RTSPClient &client = *exchange.client;
    const bool hasItsOwn = exchange.method.method == RTSP_TEARDOWN && client.teardownLimitMs > 0;
    return static_cast<int>(std::min(hasItsOwn ? client.teardownLimitMs : client.replyLimitMs, client.replyCapMs));
}

// Whoever reads the connection sees its end, too, and leaves it alone. It has been woken.
bool IsSeen(MediaSession &media) {
    constexpr int kMostLooks = 200; // a ms apart
    for (int looks = 0; ConnectionIsServed(media) && !IsClosed(media.connection); ++looks) {
        if (looks == kMostLooks) return false;
        if (IsThreadless(media)) ServeSession(media, 0);
        WaitMs(1);
    }
    return true;
}

// The connection has ended behind a reply, and what the request is about does not end with it.
bool MayConnectAgain(const Exchange &exchange) {
    const RTSPClient &client = *exchange.client;
    const MediaSession &media = client.media;
    if (!client.connectionReplies || !media.dialect.IsOn(Rule::kConnectionPerRequest)) return false;
    const bool isBound = media.dataProto == DATA_PROTO_TCP && media.state >= CLIENT_READY_STATE;
    return !isBound && HasEnded(media.connection) && IsSeen(exchange.client->media);
}

// Where that fails, so does the wait for the reply.
bool ConnectsAgain(const Exchange &exchange) {
    return MayConnectAgain(exchange) && exchange.client->media.dialect.Permits(Rule::kConnectionPerRequest) &&
           ConnectAgain(exchange.trace, *exchange.client) == RTSP_SUCCESS;
}

} // namespace

int32_t SendRequest(Exchange &exchange) {
    if (MustGiveUp()) return exchange.trace.Fail(RTSPTAP_INTERRUPTED, "EXIT : %s :Interrupted\n");
    ReleaseRecvBuffer(std::exchange(exchange.client->lastReply, nullptr));
    exchange.client->media.connection.replyLimitMs = ReplyLimit(exchange);
    ConnectsAgain(exchange);
    BeginAwaiting(exchange.client->media.connection, ReplyLimit(exchange),
                  SequenceNumber(*exchange.client->requestMsg));
    // Kept: a refused send (RTSP_SEND_FAILED) is no failure here; the wait for the reply then fails.
    if (SendRequestMessage(exchange.client->media.connection, exchange.client->requestMsg) == RTSP_FAILURE)
        return exchange.trace.Fail(RTSP_SEND_FAILED, "EXIT : %s :Problem in Sending request to Server \n");
    if (FindRequestHeader(*exchange.client->requestMsg, "Session") != nullptr)
        NoteRequest(exchange.client->media.connection);
    return RTSP_SUCCESS;
}

int32_t ReceiveReply(Exchange &exchange) {
    int32_t failure = RTSP_NO_RESPONSE;
    exchange.reply = ObtainReply(*exchange.client, exchange.method.method, failure);
    // It may have been closed while the request went out. A TEARDOWN that is answered so has been heard.
    const bool isUnheard = exchange.reply == nullptr && failure == RTSP_NO_RESPONSE;
    if (isUnheard && exchange.method.method != RTSP_TEARDOWN && ConnectsAgain(exchange)) {
        if (const int32_t result = SendRequest(exchange); result != RTSP_SUCCESS) return result;
        exchange.reply = ObtainReply(*exchange.client, exchange.method.method, failure);
    }
    if (exchange.reply != nullptr) {
        exchange.client->connectionReplies = true;
        return RTSP_SUCCESS;
    }
    if (failure == RTSP_RESPONSE_TIMEOUT)
        NoteUnanswered(exchange.client->media.connection, exchange.client->requestMsg->cSeq);
    return exchange.trace.Fail(failure, "EXIT : %s : No RTSP response received from server \n");
}

namespace {

bool IsUnauthorized(const RecvBufferPtr &reply) {
    std::string_view status(reply->data, static_cast<std::size_t>(reply->length));
    std::string_view version;
    return Until(status, ' ', version) && status.starts_with("401");
}

// Whether a 401 asks for something that the program has set, and has not been told already that it is wrong.
bool TakeChallengeOf(Exchange &exchange, int answers) {
    RTSPClient &client = *exchange.client;
    const ResponseMsgPtr response(ClientParseMessage(exchange.reply.get(), client.media.dialect));
    if (!response) return false;
    const bool carriedAnswer = FindRequestHeader(*client.requestMsg, "Authorization") != nullptr;
    const char *const server = client.requestUrl != nullptr ? client.requestUrl : "";
    NoteWhatIsAsked(client.credentials, *response);
    exchange.verdict =
        TakeChallenge(client.credentials, {*response, server, carriedAnswer, answers, client.media.dialect});
    return exchange.verdict == Verdict::kAnswer;
}

// A program that has an entry of its own answers by itself.
bool AnswersChallenges(const Exchange &exchange) {
    const RTSPClient &client = *exchange.client;
    const intptr_t list = exchange.arguments.headerList;
    const bool hasOwn = list != 0 && GetUserAddedHeaderValue(list, "Authorization") != nullptr;
    return client.credentials.areSet && !client.authentication.isWithheld && !hasOwn;
}

} // namespace

int32_t AnswerChallenge(Exchange &exchange) {
    if (!AnswersChallenges(exchange)) return RTSP_SUCCESS;
    RTSPClient &client = *exchange.client;
    for (int answers = 0; IsUnauthorized(exchange.reply); ++answers) {
        if (!TakeChallengeOf(exchange, answers)) return RTSP_SUCCESS;
        if (!RenewRequest(RequesterOf(client, 0), *client.requestMsg)) return RTSP_SUCCESS;
        if (const int32_t result = SendRequest(exchange); result != RTSP_SUCCESS) return result;
        if (const int32_t result = ReceiveReply(exchange); result != RTSP_SUCCESS) return result;
    }
    return RTSP_SUCCESS;
}

int32_t ParseReply(Exchange &exchange) {
    exchange.client->responseMsg = ClientParseMessage(exchange.reply.get(), exchange.client->media.dialect);
    if (exchange.client->responseMsg != nullptr) return RTSP_SUCCESS;
    return exchange.trace.Fail(RTSP_BAD_RESPONSE,
                               "EXIT : %s :Problem in parsing Response Message received from server \n");
}

int32_t EnterState(Exchange &exchange) {
    exchange.client->media.state = FindMethod(exchange.method.method)->reached;
    return RTSP_SUCCESS;
}

int32_t CopyReply(Exchange &exchange) {
    const ExchangeArguments &to = exchange.arguments;
    if (to.responseSize == nullptr) return RTSP_SUCCESS;
    const int32_t length = exchange.reply->length;
    const bool fits = length <= *to.responseSize;
    *to.responseSize = length;
    if (!fits)
        return exchange.trace.Fail(RTSP_SMALL_BUFFER,
                                   "EXIT : %s :Small Buffer received from Application for Response\n");
    if (to.responseBuff == nullptr)
        RtpRtspInfoPrint("Small Response Buffer received from application \n");
    else
        memcpy(to.responseBuff, exchange.reply->data, static_cast<std::size_t>(length));
    return RTSP_SUCCESS;
}

bool IsOk(const Exchange &exchange) { return exchange.client->responseMsg->statusCode == 200; }

namespace {

int32_t CheckArguments(Exchange &exchange, bool streamNumberIsValid) {
    if (exchange.arguments.clientHandle == 0 || !streamNumberIsValid)
        return exchange.trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    exchange.client = LiveClient(exchange.arguments.clientHandle);
    if (exchange.client == nullptr)
        return exchange.trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid client handle\n");
    const int32_t result = RefuseWhilePending(exchange.trace, *exchange.client);
    if (result != RTSP_SUCCESS) exchange.client = nullptr; // what it holds is the pending operation's
    return result;
}

} // namespace

int32_t CheckHandle(Exchange &exchange) { return CheckArguments(exchange, true); }

int32_t CheckHandleAndSession(Exchange &exchange) {
    return CheckArguments(exchange, exchange.arguments.streamNumber >= 0);
}

int32_t CheckHandleAndStream(Exchange &exchange) {
    return CheckArguments(exchange, exchange.arguments.streamNumber > 0);
}

int32_t CheckConnected(Exchange &exchange) {
    if (exchange.client->connected == 1) return RTSP_SUCCESS;
    return exchange.trace.Fail(RTSP_NOT_CONNECTED, "EXIT : %s :Client is created but is not connected to server\n");
}

int32_t CheckStreamNumber(Exchange &exchange) {
    if (exchange.arguments.streamNumber <= exchange.client->media.streamCount) return RTSP_SUCCESS;
    return exchange.trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid Stream Number\n");
}

int32_t CheckState(Exchange &exchange) {
    DebugPrint(kDebugEntry, "\tChecking whether client is in Valid state or not \n");
    if ((exchange.method.allowedStates >> exchange.client->media.state & 1U) != 0) return RTSP_SUCCESS;
    return exchange.trace.Fail(RTSP_INVALID_STATE, exchange.method.badState);
}

int32_t CheckHeaderList(Exchange &exchange) {
    const intptr_t list = exchange.arguments.headerList;
    if (list == 0 || ValidateHeaderList(list, exchange.method.method) == RTSP_SUCCESS) return RTSP_SUCCESS;
    return exchange.trace.Fail(RTSP_INVALID_HEADER_LIST, exchange.method.badHeaderList);
}

std::string_view SessionToken(std::string_view headerValue, const Dialect &dialect) {
    const std::size_t start = headerValue.find_first_not_of(';');
    if (start == headerValue.npos) return headerValue;
    const std::string_view token = headerValue.substr(start, headerValue.find(';', start) - start);
    const std::string_view identifier = WithoutBlanks(token);
    return identifier.size() == token.size() || !dialect.Permits(Rule::kPaddedSession) ? token : identifier;
}

namespace {

std::string_view WithoutQuotes(std::string_view text) {
    const bool isQuoted = text.size() > 1 && text.front() == '"' && text.back() == '"';
    return isQuoted ? text.substr(1, text.size() - 2) : text;
}

} // namespace

int32_t CompareSession(Exchange &exchange) {
    const Dialect &dialect = exchange.client->media.dialect;
    const std::string_view ours = exchange.client->sessionId;
    const char *const value = GetResponseHeader(exchange.client->responseMsg, "Session");
    if (value == nullptr) return RTSP_SUCCESS;
    const std::string_view session = SessionToken(value, dialect);
    if (session == ours) return RTSP_SUCCESS;
    if (WithoutQuotes(session) == WithoutQuotes(ours) && dialect.Permits(Rule::kPaddedSession)) return RTSP_SUCCESS;
    if (dialect.Permits(Rule::kOtherSession)) return RTSP_SUCCESS;
    return exchange.trace.Fail(RTSP_INVALID_SESSION, "EXIT : %s : Invalid Session Id received from server \n");
}

namespace {

void KeepLocation(RTSPClient &client) {
    const std::span headers(client.responseMsg->headers.data(), client.responseMsg->headerCount);
    const auto isLocation = [](const RTSPHeaderStruct &header) {
        return header.headerValue != nullptr && EqualIgnoringCase(header.headerName, "Location");
    };
    const auto found = std::ranges::find_if(headers, isLocation);
    HeapText location = found != headers.end() ? DuplicateText(WithoutBlanks(found->headerValue)) : nullptr;
    free(std::exchange(client.location, location.release()));
}

int32_t FailUnauthorized(const Exchange &exchange) {
    if (exchange.verdict == Verdict::kUnknown)
        return exchange.trace.Fail(RTSPTAP_UNKNOWN_CHALLENGE,
                                   "EXIT : %s :The server asks for an unknown way to authenticate\n");
    if (exchange.verdict == Verdict::kBasicNotAllowed)
        return exchange.trace.Fail(RTSPTAP_UNKNOWN_CHALLENGE,
                                   "EXIT : %s :The server asks for Basic authentication, which is not allowed\n");
    if (exchange.verdict == Verdict::kAnswer)
        return exchange.trace.Fail(RTSP_UNAUTHORIZED, "EXIT : %s :No answer can be made for this URL\n");
    return exchange.trace.Fail(RTSP_UNAUTHORIZED, "EXIT : %s :The server takes no answer to its challenge\n");
}

} // namespace

int32_t ClassifyStatus(Exchange &exchange) {
    const int32_t status = exchange.client->responseMsg->statusCode;
    exchange.client->lastStatus = status;
    if (status >= 500)
        return exchange.trace.Fail(RTSP_SERVER_ERROR, "EXIT : %s :Server Error Received from Server\n");
    if (status == 401 && exchange.client->credentials.areSet) return FailUnauthorized(exchange);
    if (status == 401 && exchange.method.answersChallenge) {
        StoreChallenge(exchange.client->authentication, *exchange.client->responseMsg);
        return RTSP_UNAUTHORIZED;
    }
    if (status >= 400)
        return exchange.trace.Fail(RTSP_CLIENT_ERROR, "EXIT : %s :Client Error Received from Server\n");
    if (status >= 300) {
        KeepLocation(*exchange.client);
        return exchange.trace.Fail(RTSP_REDIRECTED, "EXIT : %s :Redirectional Error Received from Server\n");
    }
    return RTSP_SUCCESS;
}

} // namespace rtsptap
