#include "rtsp/client/reply_status.h"

#include "rtsp/client/challenge.h"
#include "rtsp/client/client_record.h"
#include "rtsp/message/response.h"

namespace rtsptap {

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
