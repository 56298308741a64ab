
#include "rtsp/client/exchange.h"

#include "rtp/session_threads.h"
#include "rtsp/client/client.h"
#include "rtsp/client/reply_source.h"
#include "rtsp/message/authentication.h"
#include "rtsp/message/header_rules.h"
#include "rtsp/message/methods.h"
#include "rtsp/message/request.h"
#include "rtsp/message/response.h"

#include <cstring>
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

void CloseUndoneSockets(const Exchange &exchange) {
    if (exchange.undo == Undo::kNothing) return;
    CloseRtpSocket(*exchange.stream);
    if (exchange.undo == Undo::kBothSockets && exchange.client->dataProto == DATA_PROTO_UDP)
        CloseRtcpSocket(*exchange.stream);
}

} // namespace

Exchange::~Exchange() {
    if (client == nullptr) return;
    freeRequestMsg(client->requestMsg);
    client->requestMsg = nullptr;
    ReleaseResponse(*client);
    EndAwaiting(*client);
    KeepReply(*client, std::move(reply));
}

int32_t RunExchange(Exchange &exchange) {
    RtpRtspInfoPrint("%s", exchange.method.sending);
    LogArguments(exchange);
    int32_t result = RunSteps(exchange.method.checks, exchange);
    if (result == RTSP_SUCCESS) result = RunSteps(exchange.method.steps, exchange);
    if (result != RTSP_SUCCESS) CloseUndoneSockets(exchange);
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

int32_t GenerateRequest(Exchange &exchange) {
    const RTSPMethod method = exchange.method.method;
    const int32_t streamIndex = AddressesStream(method) ? exchange.arguments.streamNumber - 1 : 0;
    exchange.client->requestMsg =
        GenerateRequestMessage(exchange.client, method, exchange.arguments.headerList, streamIndex);
    if (exchange.client->requestMsg != nullptr) return RTSP_SUCCESS;
    return exchange.trace.Fail(RTSP_REQUEST_NOT_BUILT, exchange.method.notGenerated);
}

int32_t SendRequest(Exchange &exchange) {
    ReleaseRecvBuffer(std::exchange(exchange.client->lastReply, nullptr));
    BeginAwaiting(*exchange.client);
    // Kept: a refused send (RTSP_SEND_FAILED) is no failure here; the wait for the reply then fails.
    if (SendRequestMessage(exchange.client) == RTSP_FAILURE)
        return exchange.trace.Fail(RTSP_SEND_FAILED, "EXIT : %s :Problem in Sending request to Server \n");
    return RTSP_SUCCESS;
}

int32_t ReceiveReply(Exchange &exchange) {
    int32_t failure = RTSP_NO_RESPONSE;
    exchange.reply = ObtainReply(*exchange.client, exchange.method.method, failure);
    if (exchange.reply != nullptr) return RTSP_SUCCESS;
    return exchange.trace.Fail(failure, "EXIT : %s : No RTSP response received from server \n");
}

int32_t ParseReply(Exchange &exchange) {
    exchange.client->responseMsg = ClientParseMessage(exchange.reply.get());
    if (exchange.client->responseMsg != nullptr) return RTSP_SUCCESS;
    return exchange.trace.Fail(RTSP_BAD_RESPONSE,
                               "EXIT : %s :Problem in parsing Response Message received from server \n");
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
    return RTSP_SUCCESS;
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
    if (exchange.arguments.streamNumber <= exchange.client->streamCount) return RTSP_SUCCESS;
    return exchange.trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid Stream Number\n");
}

int32_t CheckState(Exchange &exchange) {
    DebugPrint(kDebugEntry, "\tChecking whether client is in Valid state or not \n");
    if ((exchange.method.allowedStates >> exchange.client->state & 1U) != 0) return RTSP_SUCCESS;
    return exchange.trace.Fail(RTSP_INVALID_STATE, exchange.method.badState);
}

int32_t CheckHeaderList(Exchange &exchange) {
    const intptr_t list = exchange.arguments.headerList;
    if (list == 0 || ValidateHeaderList(list, exchange.method.method) == RTSP_SUCCESS) return RTSP_SUCCESS;
    return exchange.trace.Fail(RTSP_INVALID_HEADER_LIST, exchange.method.badHeaderList);
}

std::string_view SessionToken(std::string_view headerValue) {
    const std::size_t start = headerValue.find_first_not_of(';');
    if (start == headerValue.npos) return headerValue;
    return headerValue.substr(start, headerValue.find(';', start) - start);
}

int32_t CompareSession(Exchange &exchange) {
    const char *const session = GetResponseHeader(exchange.client->responseMsg, "Session");
    if (session == nullptr || SessionToken(session) == exchange.client->sessionId) return RTSP_SUCCESS;
    return exchange.trace.Fail(RTSP_INVALID_SESSION, "EXIT : %s : Invalid Session Id received from server \n");
}

int32_t ClassifyStatus(Exchange &exchange) {
    const int32_t status = exchange.client->responseMsg->statusCode;
    if (status >= 500)
        return exchange.trace.Fail(RTSP_SERVER_ERROR, "EXIT : %s :Server Error Received from Server\n");
    if (status == 401 && exchange.method.answersChallenge) {
        StoreChallenge(*exchange.client, *exchange.client->responseMsg);
        return RTSP_UNAUTHORIZED;
    }
    if (status >= 400)
        return exchange.trace.Fail(RTSP_CLIENT_ERROR, "EXIT : %s :Client Error Received from Server\n");
    if (status >= 300)
        return exchange.trace.Fail(RTSP_REDIRECTED, "EXIT : %s :Redirectional Error Received from Server\n");
    return RTSP_SUCCESS;
}

} // namespace rtsptap
