#include "rtsp/client/exchange.h"

#include "rtsp/client/client_record.h"
#include "rtsp/client/reply_source.h"
#include "rtsp/client/stream_threads.h"
#include "rtsp/message/method_names.h"
#include "rtsp/message/request.h"
#include "rtsp/message/request_build.h"
#include "rtsp/message/request_send.h"
#include "rtsp/message/response.h"
#include "rtsp/message/response_parse.h"

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

} // namespace rtsptap
