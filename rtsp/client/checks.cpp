#include "rtsp/client/checks.h"

#include "rtsp/client/client_record.h"
#include "rtsp/client/registry.h"
#include "rtsp/message/header_validation.h"

namespace rtsptap {
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

} // namespace rtsptap
