#include "rtsp/client/keep_alive.h"

#include "platform/printers.h"
#include "platform/system.h"
#include "rtp/interleaved/splitter.h"
#include "rtp/interleaved/tending.h"
#include "rtsp/client/client.h"
#include "rtsp/client/exchange.h"
#include "rtsp/message/methods.h"
#include "rtsp/message/request.h"
#include "rtsp/message/response.h"

#include <algorithm>
#include <utility>

namespace rtsptap {

// ---- what the next request says ----

namespace {

constexpr int32_t kOfTheSession = -1; // and of no stream

bool CopyInto(KeptText &copy, const char *text) {
    const HeapText before(std::exchange(copy.text, DuplicateText(text != nullptr ? text : "").release()));
    return copy.text != nullptr;
}

} // namespace

void RenewKeepAlive(RTSPClient &client) {
    if (!IsKeptAlive(client.media)) return;
    const Requester from = RequesterOf(client, kOfTheSession);
    KeepAlive &next = client.keepAlive;
    const ScopedLock lock(next.lock);
    next.nextMethod = next.method;
    next.authentication = client.authentication;
    next.isReady = client.connected != 0 && client.sessionId[0] != '\0' &&
                   CopyInto(next.requestUrl, from.aggregateUrl != nullptr ? from.aggregateUrl : from.requestUrl) &&
                   CopyInto(next.serverUrl, from.serverUrl) && CopyInto(next.sessionId, from.sessionId) &&
                   CopyInto(next.userAgent, from.userAgent);
}

// ---- whoever serves the connection ----

namespace {

RTSPClient &ClientOf(MediaSession &session) { return reinterpret_cast<RTSPClient &>(session); } // it comes first

// OPTIONS names no session of its own accord.
RequestMsgPtr GenerateKeepAlive(RTSPClient &client, const KeepAlive &next) {
    const Requester from{.requestUrl = next.requestUrl.text,
                         .aggregateUrl = nullptr,
                         .controlUrl = nullptr,
                         .streamCount = 0,
                         .sessionId = next.sessionId.text,
                         .userAgent = next.userAgent.text,
                         .authentication = next.authentication,
                         .serverUrl = next.serverUrl.text,
                         .credentials = client.credentials.areSet ? &client.credentials : nullptr,
                         .dialect = client.media.dialect,
                         .cSeq = client.cSeq};
    RequestMsgPtr request(GenerateRequestMessage(from, next.nextMethod, 0, kOfTheSession));
    if (request != nullptr && next.nextMethod == RTSP_OPTIONS)
        AddRequestHeader(request.get(), "Session", next.sessionId.text);
    return request;
}

RecvBufferPtr WriteKeepAlive(MediaSession &session, uint32_t &cSeq) {
    RTSPClient &client = ClientOf(session);
    const KeepAlive &next = client.keepAlive;
    const ScopedLock lock(client.keepAlive.lock);
    if (!next.isReady) return nullptr;
    const RequestMsgPtr request = GenerateKeepAlive(client, next);
    if (request == nullptr) return nullptr;
    cSeq = request->cSeq;
    return WriteRequest(*request);
}

// A nonce may have gone stale: the request is repeated with the answer to the new challenge, once.
bool AnswersChallenge(RTSPClient &client, std::string_view reply) {
    KeepAlive &next = client.keepAlive;
    RecvBufferPtr copy(CreateRecvBuffer(static_cast<uint32_t>(reply.size())));
    if (copy == nullptr) return false;
    std::ranges::copy(reply, copy->data);
    copy->length = static_cast<int32_t>(reply.size());
    const ResponseMsgPtr response(ClientParseMessage(copy.get(), client.media.dialect));
    const ScopedLock lock(next.lock);
    if (response == nullptr || std::exchange(next.isChallenged, true)) return false;
    if (!client.credentials.areSet) {
        StoreChallenge(next.authentication, *response);
        return true;
    }
    const char *const server = next.serverUrl.text != nullptr ? next.serverUrl.text : "";
    const bool carriedAnswer = IsAnswering(client.credentials, server);
    return TakeChallenge(client.credentials, {*response, server, carriedAnswer, 0, client.media.dialect}) ==
           Verdict::kAnswer;
}

void TakeReply(MediaSession &session, std::string_view reply) {
    constexpr int32_t kUnauthorized = 401;
    constexpr int32_t kSessionNotFound = 454;
    KeepAlive &next = ClientOf(session).keepAlive;
    const int32_t status = ReadReplyHead(reply).status;
    if (status == kUnauthorized) {
        if (AnswersChallenge(ClientOf(session), reply)) RepeatKeepAlive(session.connection);
        return;
    }
    {
        const ScopedLock lock(next.lock);
        next.isChallenged = false;
        if (status == kSessionNotFound) next.isReady = false;
    }
    if (status == kSessionNotFound) NoteSessionTimedOut(session);
}

} // namespace

void PrepareKeepAlive(RTSPClient &client) {
    client.media.connection.tending.writeKeepAlive = WriteKeepAlive;
    client.media.connection.tending.takeReply = TakeReply;
}

// ---- what the server says ----

namespace {

// Whether a list of words apart by commas has the word.
bool Lists(std::string_view list, std::string_view word) {
    while (!list.empty()) {
        const std::size_t end = std::min(list.find(','), list.size());
        if (EqualIgnoringCase(WithoutBlanks(list.substr(0, end)), word)) return true;
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    return false;
}

} // namespace

// Without a Public header nothing is known: OPTIONS is what every server has (RFC 2326, 10.1).
int32_t ChooseKeepAlive(Exchange &exchange) {
    const ResponseMsg &response = *exchange.client->responseMsg;
    bool isKnown = false;
    const auto isPublic = [&](uint32_t method) {
        bool isListed = false;
        for (uint32_t i = 0; i < response.headerCount; ++i) {
            if (!EqualIgnoringCase(response.headers[i].headerName, "Public")) continue;
            isKnown = true;
            isListed = isListed || Lists(response.headers[i].headerValue, MethodName(method));
        }
        return isListed;
    };
    uint32_t &method = exchange.client->keepAlive.method;
    method = isPublic(RTSP_GET_PARAMETER)         ? RTSP_GET_PARAMETER
             : isPublic(RTSP_OPTIONS) || !isKnown ? RTSP_OPTIONS
                                                  : kSetParameter;
    return RTSP_SUCCESS;
}

int32_t SessionTimeout(std::string_view value) {
    constexpr std::string_view kName = "timeout";
    while (!value.empty()) {
        const std::size_t end = std::min(value.find(';'), value.size());
        const std::string_view parameter = value.substr(0, end);
        const std::size_t equals = std::min(parameter.find('='), parameter.size());
        if (equals < parameter.size() && EqualIgnoringCase(WithoutBlanks(parameter.substr(0, equals)), kName))
            return std::max(LeadingNumber(parameter.substr(equals + 1)), 0);
        value.remove_prefix(std::min(end + 1, value.size()));
    }
    return 0;
}

} // namespace rtsptap
