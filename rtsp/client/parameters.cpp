// GET_PARAMETER and SET_PARAMETER: a body there, a body back, and the client stays in its state. Application
// thread.
#include "platform/text.h"
#include "rtp/interleaved/splitter.h"
#include "rtp/media_session.h"
#include "rtsp/client/client.h"
#include "rtsp/client/exchange.h"
#include "rtsp/message/methods.h"
#include "rtsp/message/request.h"
#include "rtsp/message/response.h"
#include "rtsptap_extended.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

namespace rtsptap {

// What the steps of one of these share.
struct ParameterParts {
    const char *contentType; // of the body; may be null
    const char *body;        // may be null
    char *replyBody;         // may be null
    uint32_t *replySize;     // capacity of replyBody, then what its text needs; may be null
};

namespace {

// A header's value must stay on its line.
int32_t CheckContentType(Exchange &exchange) {
    const char *const type = exchange.parameter->contentType;
    if (type == nullptr || !HasControlCharacter(type)) return RTSP_SUCCESS;
    return exchange.trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :The content type has a control character\n");
}

bool AddBodyHeaders(RequestMsg &request, const char *contentType) {
    char length[24];
    std::snprintf(length, sizeof length, "%zu", std::strlen(request.body));
    if (PutRequestHeader(request, "Content-Length", length) != RTSP_SUCCESS) return false;
    if (contentType == nullptr && FindRequestHeader(request, "Content-Type") != nullptr) return true;
    const char *const type = contentType != nullptr ? contentType : "text/parameters";
    return PutRequestHeader(request, "Content-Type", type) == RTSP_SUCCESS;
}

// Of a body and its length none goes without the other.
int32_t AddBody(Exchange &exchange) {
    const ParameterParts &parts = *exchange.parameter;
    if (parts.body == nullptr || *parts.body == '\0') return RTSP_SUCCESS;
    RequestMsg &request = *exchange.client->requestMsg;
    request.body = parts.body;
    if (AddBodyHeaders(request, parts.contentType)) return RTSP_SUCCESS;
    return exchange.trace.Fail(RTSP_REQUEST_NOT_BUILT, "EXIT : %s :The body's headers could not be added\n");
}

// As much behind the blank line as Content-Length says, or all that came.
std::string_view BodyOfReply(const Exchange &exchange) {
    const std::string_view text(exchange.reply->data, static_cast<std::size_t>(exchange.reply->length));
    const std::string_view body = text.substr(std::min(HeadLength(text), text.size()));
    const char *const length = GetResponseHeader(exchange.client->responseMsg, "Content-Length");
    const int32_t announced = length != nullptr ? LeadingNumber(length) : -1;
    return announced < 0 ? body : body.substr(0, static_cast<std::size_t>(announced));
}

int32_t HandBodyBack(Exchange &exchange) {
    const ParameterParts &parts = *exchange.parameter;
    if (parts.replySize == nullptr) return RTSP_SUCCESS;
    const std::string_view body = BodyOfReply(exchange);
    const uint32_t capacity = std::exchange(*parts.replySize, static_cast<uint32_t>(body.size() + 1));
    if (parts.replyBody == nullptr) return RTSP_SUCCESS;
    if (body.size() >= capacity)
        return exchange.trace.Fail(RTSP_SMALL_BUFFER,
                                   "EXIT : %s :Small Buffer received from Application for the body\n");
    *std::copy(body.begin(), body.end(), parts.replyBody) = '\0';
    return RTSP_SUCCESS;
}

constexpr Step kChecks[] = {CheckHandleAndSession, CheckConnected, CheckStreamNumber, CheckContentType,
                            CheckHeaderList};
constexpr Step kSteps[] = {GenerateRequest, AddBody,        SendRequest,    ReceiveReply,      AnswerChallenge,
                           ParseReply,      CompareSession, ClassifyStatus, OnOk<HandBodyBack>};

constexpr MethodDescriptor kGetParameter{
    .functionName = "RTSPTapGetParameter",
    .method = RTSP_GET_PARAMETER,
    .allowedStates = ~StateSet{0},
    .answersChallenge = false,
    .checks = kChecks,
    .steps = kSteps,
    .sending = "Client generating and sending GET_PARAMETER request message \n",
    .badState = "EXIT : %s :Client State is Not Valid for GET_PARAMETER Method.\n",
    .badHeaderList = "EXIT : %s :HeaderList of GET_PARAMETER method is not valid\n",
    .notGenerated = "EXIT : %s :Request Message for GET_PARAMETER not generated \n",
};

constexpr MethodDescriptor kSetParameterRow{
    .functionName = "RTSPTapSetParameter",
    .method = kSetParameter,
    .allowedStates = ~StateSet{0},
    .answersChallenge = false,
    .checks = kChecks,
    .steps = kSteps,
    .sending = "Client generating and sending SET_PARAMETER request message \n",
    .badState = "EXIT : %s :Client State is Not Valid for SET_PARAMETER Method.\n",
    .badHeaderList = "EXIT : %s :HeaderList of SET_PARAMETER method is not valid\n",
    .notGenerated = "EXIT : %s :Request Message for SET_PARAMETER not generated \n",
};

int32_t Run(const MethodDescriptor &row, const ExchangeArguments &arguments, ParameterParts parts) {
    Exchange exchange(row, arguments);
    exchange.parameter = &parts;
    return RunExchange(exchange);
}

} // namespace
} // namespace rtsptap

using namespace rtsptap;

int32_t RTSPTapGetParameter(intptr_t clientHandle, int32_t streamNumber, intptr_t headerList,
                            const char *contentType, const char *body, char *replyBody, uint32_t *replySize) {
    return Run(kGetParameter,
               {.clientHandle = clientHandle, .streamNumber = streamNumber, .headerList = headerList},
               {contentType, body, replyBody, replySize});
}

int32_t RTSPTapSetParameter(intptr_t clientHandle, int32_t streamNumber, intptr_t headerList,
                            const char *contentType, const char *body, char *replyBody, uint32_t *replySize) {
    return Run(kSetParameterRow,
               {.clientHandle = clientHandle, .streamNumber = streamNumber, .headerList = headerList},
               {contentType, body, replyBody, replySize});
}
