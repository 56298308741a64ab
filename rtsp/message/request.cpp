#include "rtsp/message/request.h"

#include "dialect/dialect.h"
#include "platform/printers.h"
#include "platform/system.h"
#include "platform/text.h"
#include "platform/url.h"
#include "rtp/interleaved/sending.h"
#include "rtsp/message/authentication.h"
#include "rtsp/message/credentials.h"
#include "rtsp/message/header_list.h"
#include "rtsp/message/methods.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <new>
#include <string_view>
#include <utility>

namespace rtsptap {

namespace {

constexpr char kAuthorization[] = "Authorization";

} // namespace

RequestMsgPtr CreateRequestMsg(uint32_t method) {
    RequestMsgPtr request(new (std::nothrow) RequestMsg{});
    if (!request) return nullptr;
    request->method = method;
    request->version = static_cast<char *>(std::calloc(kVersionBytes, 1));
    if (request->version == nullptr) return nullptr;
    CopyText(request->version, kVersionBytes, "RTSP/1.0");
    return request;
}

int32_t AddRequestHeader(RequestMsg *requestMsg, const char *headerName, const char *headerValue) {
    const CallTrace trace(__func__);
    if (requestMsg == nullptr || headerName == nullptr || headerValue == nullptr)
        return trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Invalid input argument\n");
    if (requestMsg->headerCount >= kHeaderSlots)
        return trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Request Message already has maximum number of messages\n");
    HeapText name = DuplicateText(headerName);
    if (!name) return trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Memory Allocation Failed\n");
    HeapText value = DuplicateText(headerValue);
    if (!value) return trace.Fail(RTSP_NO_MEMORY, "\tEXIT : %s :Memory Allocation Failed\n");

    RTSPHeaderStruct &slot = requestMsg->headers[requestMsg->headerCount++];
    slot.headerName = name.release();
    slot.headerValue = value.release();
    DebugPrint(kDebugEntry, "Added Header= %s : %s\n", headerName, headerValue);
    return RTSP_SUCCESS;
}

RTSPHeaderStruct *FindRequestHeader(RequestMsg &request, std::string_view name) {
    for (uint32_t i = 0; i < request.headerCount; ++i)
        if (EqualIgnoringCase(request.headers[i].headerName, name)) return &request.headers[i];
    return nullptr;
}

int32_t PutRequestHeader(RequestMsg &request, const char *name, const char *value) {
    RTSPHeaderStruct *const slot = FindRequestHeader(request, name);
    if (slot == nullptr) return AddRequestHeader(&request, name, value);
    HeapText copy = DuplicateText(value);
    if (!copy) return RTSP_NO_MEMORY;
    char *const earlier = std::exchange(slot->headerValue, copy.release());
    request.isSecret ? WipeText(earlier) : std::free(earlier);
    return RTSP_SUCCESS;
}

void RemoveRequestHeader(RequestMsg &request, std::string_view name) {
    RTSPHeaderStruct *const slot = FindRequestHeader(request, name);
    if (slot == nullptr) return;
    ReleaseHeaderSlot(*slot);
    std::rotate(slot, slot + 1, request.headers.data() + request.headerCount--);
}

void freeRequestMsg(RequestMsg *requestMsg) {
    if (requestMsg == nullptr) return;
    RTSPHeaderStruct *const secret = FindRequestHeader(*requestMsg, kAuthorization);
    if (requestMsg->isSecret && secret != nullptr) WipeText(std::exchange(secret->headerValue, nullptr));
    for (RTSPHeaderStruct &slot : requestMsg->headers) ReleaseHeaderSlot(slot);
    std::free(requestMsg->uri);
    std::free(requestMsg->version);
    delete requestMsg;
}

namespace {

// One request under construction. The steps below return false when a header could not be added: the
// request is then sent with the headers it has.
struct Build {
    const CallTrace &trace;
    const Requester &from;
    RequestMsg &request;
    intptr_t userList; // may be 0
    int32_t stream;    // 0-based, negative for the whole session
};

// False when memory is short.
bool WriteUri(const Build &build) {
    const Requester &from = build.from;
    const bool isDescribed = from.aggregateUrl != nullptr && build.request.method > RTSP_DESCRIBE;
    const char *url = isDescribed ? from.aggregateUrl : from.requestUrl;
    char track[24] = {};

    const Method *const method = FindMethod(build.request.method);
    const bool isOfStream =
        method != nullptr && method->addressesStream && from.streamCount > 0 && build.stream >= 0;
    if (isOfStream && from.controlUrl != nullptr)
        url = from.controlUrl;
    else if (isOfStream)
        std::snprintf(track, sizeof track, "/trackID=%d", build.stream);

    const std::size_t size = std::strlen(url) + std::strlen(track) + 1;
    build.request.uri = static_cast<char *>(std::malloc(size));
    if (build.request.uri != nullptr) std::snprintf(build.request.uri, size, "%s%s", url, track);
    return build.request.uri != nullptr;
}

int32_t AddSequenceNumber(const Build &build) {
    build.request.cSeq = ++build.from.cSeq; // consumed also when the request is never sent
    char number[12];
    std::snprintf(number, sizeof number, "%u", build.request.cSeq);
    return AddRequestHeader(&build.request, "CSeq", number);
}

// Kept: the texts name "User-Agent" whatever the header was.
// A header whose value alone found no memory (RTSP_NO_MEMORY) is left out without a word.
bool AddOrReport(const Build &build, const char *name, const char *value, const char *notAddedText) {
    if (AddRequestHeader(&build.request, name, value) != RTSP_FAILURE) return true;
    RtpRtspErrorPrint(notAddedText, build.trace.Function(), "User-Agent");
    return false;
}

bool AddDefaultHeader(const Build &build, const DefaultHeader &header) {
    RTSPHeaderStruct *const userGiven =
        build.userList == 0 ? nullptr : GetUserAddedHeaderValue(build.userList, header.name);
    if (userGiven != nullptr) {
        userGiven->isUsed = 1;
        return AddOrReport(build, header.name, userGiven->headerValue, header.texts.userGiven);
    }
    if (header.laterStreamsOnly && build.stream <= 0) return true;
    const char *const value = header.value == kSessionId ? build.from.sessionId : header.value;
    if (header.onlyWithValue && *value == '\0') return true;
    return AddOrReport(build, header.name, value, header.texts.byDefault);
}

// A password's answer is for the server alone, whatever host the URL names: an answer for another one's URL would
// be good there. Names the server in its place, as far as the dialect permits. False when memory is short.
bool NameTheServer(const Requester &from, RequestMsg &request) {
    if (AreOfOneServer(request.uri, from.serverUrl) || !from.dialect.Permits(Rule::kForeignControl)) return true;
    HeapText uri = OnServerOf(from.serverUrl, request.uri);
    if (!uri) return false;
    std::free(std::exchange(request.uri, uri.release()));
    return true;
}

HeapText AnswerFor(const Requester &from, RequestMsg &request) {
    if (!IsAnswering(*from.credentials, from.serverUrl) || !NameTheServer(from, request)) return nullptr;
    return AuthorizationFor(*from.credentials,
                            {from.serverUrl, MethodName(request.method), request.uri, request.body});
}

// The program's own entry goes before it.
bool AddAnswer(const Build &build) {
    if (build.userList != 0 && GetUserAddedHeaderValue(build.userList, kAuthorization) != nullptr) return true;
    HeapText value = AnswerFor(build.from, build.request);
    if (!value) return true;
    const bool isAdded = AddOrReport(build, kAuthorization, value.get(), kAuthorizationTexts.byDefault);
    WipeText(value.release());
    return isAdded;
}

bool AddAuthorization(const Build &build) {
    const Authentication &authentication = build.from.authentication;
    build.request.isSecret = build.from.credentials != nullptr;
    if (authentication.isWithheld) return true;
    if (build.from.credentials != nullptr) return AddAnswer(build);
    if (authentication.required == 0) return true;
    const HeapText value(
        GenerateRTSPAuthenticationRequest(authentication, build.request.uri, build.request.method));
    return !value || AddOrReport(build, kAuthorization, value.get(), kAuthorizationTexts.byDefault);
}

bool AddMethodHeaders(const Build &build, const Method &method) {
    for (const DefaultHeader &header : method.headers)
        if (!AddDefaultHeader(build, header)) return false;
    return true;
}

void AddRemainingUserHeaders(const Build &build) {
    for (const RTSPHeaderStruct *node = FirstHeader(build.userList); node != nullptr; node = node->next) {
        if (node->isUsed == 1 || IsEmptyHeaderList(*node)) continue;
        if (AddRequestHeader(&build.request, node->headerName, node->headerValue) != RTSP_FAILURE) continue;
        RtpRtspErrorPrint("\tEXIT : %s :Problem Occured while Adding Request Header \n", build.trace.Function());
        return;
    }
}

// The same list serves the next request, however this one ended.
void ClearUsedMarks(intptr_t userList) {
    for (RTSPHeaderStruct *node = FirstHeader(userList); node != nullptr; node = node->next) node->isUsed = 0;
}

} // namespace

RequestMsg *GenerateRequestMessage(const Requester &from, uint32_t method, intptr_t userList, int32_t stream) {
    constexpr RequestMsg *kNone = nullptr;
    const CallTrace trace(__func__);
    if (method >= kMethodNumbers || stream > from.streamCount)
        return trace.Fail(kNone, "\tEXIT : %s :Invalid input argument\n");
    RequestMsgPtr request = CreateRequestMsg(method);
    if (!request) return trace.Fail(kNone, "\tEXIT : %s :Memory Allocation Failed\n");
    const Build build{trace, from, *request, userList, stream};
    const ScopeExit clearMarks([userList] { ClearUsedMarks(userList); });

    if (!WriteUri(build)) return trace.Fail(kNone, "\tEXIT : %s :Memory Allocation Failed\n");
    RtpRtspInfoPrint("Generated RTSP URI  %s \n", request->uri);
    if (AddSequenceNumber(build) != RTSP_SUCCESS)
        return trace.Fail(kNone, "\tEXIT : %s :Problem Occurred while Adding Request Header \n");
    const DefaultHeader userAgent{"User-Agent", from.userAgent, kUserAgentTexts};
    if (!AddDefaultHeader(build, userAgent) || !AddAuthorization(build)) return request.release();
    const Method *const row = FindMethod(method);
    if (row == nullptr) return trace.Fail(kNone, "\tEXIT : %s :Method is not implemented\n");
    if (AddMethodHeaders(build, *row)) AddRemainingUserHeaders(build);
    return request.release();
}

bool RenewRequest(const Requester &from, RequestMsg &request) {
    HeapText value = AnswerFor(from, request);
    if (!value) return false;
    char number[12];
    request.cSeq = ++from.cSeq;
    std::snprintf(number, sizeof number, "%u", request.cSeq);
    const bool isRenewed = PutRequestHeader(request, kAuthorization, value.get()) == RTSP_SUCCESS &&
                           PutRequestHeader(request, "CSeq", number) == RTSP_SUCCESS;
    WipeText(value.release());
    return isRenewed;
}

namespace {

constexpr std::size_t kSeparator = 2; // colon and space, or two spaces
constexpr std::size_t kLineEnd = 2;   // CR and LF

// Every value of these is left out of what is printed of a secret request.
bool IsSecret(const RequestMsg &request, const RTSPHeaderStruct &header) {
    return request.isSecret && (EqualIgnoringCase(header.headerName, kAuthorization) ||
                                EqualIgnoringCase(header.headerName, "Proxy-Authorization"));
}

// Room for the whole text and its terminator.
std::size_t SerialisedSize(const RequestMsg &request) {
    std::size_t size = std::strlen(MethodName(request.method)) + kSeparator + std::strlen(request.uri) +
                       std::strlen(request.version) + kLineEnd;
    for (uint32_t i = 0; i < request.headerCount; ++i)
        size += std::strlen(request.headers[i].headerName) + kSeparator +
                std::strlen(request.headers[i].headerValue) + kLineEnd;
    return size + kLineEnd + std::strlen(request.body) + 1;
}

char *Append(char *end, std::initializer_list<std::string_view> pieces) {
    for (const std::string_view piece : pieces) end = std::copy(piece.begin(), piece.end(), end);
    return end;
}

// Writes what SerialisedSize made room for; returns the end of the text.
char *Serialise(const RequestMsg &request, char *text, bool isPrinted = false) {
    constexpr std::string_view kMask = "***";
    char *end = Append(text, {MethodName(request.method), " ", request.uri, " ", request.version, "\r\n"});
    for (uint32_t i = 0; i < request.headerCount; ++i) {
        const RTSPHeaderStruct &header = request.headers[i];
        const std::string_view value = header.headerValue;
        const bool isMasked = isPrinted && IsSecret(request, header);
        end = Append(end, {header.headerName, ": ", isMasked ? kMask.substr(0, value.size()) : value, "\r\n"});
    }
    return Append(end, {"\r\n", request.body});
}

} // namespace

RecvBufferPtr WriteRequest(const RequestMsg &request) {
    RecvBufferPtr text(CreateRecvBuffer(static_cast<uint32_t>(SerialisedSize(request))));
    if (text == nullptr) return nullptr;
    *Serialise(request, text->data, true) = '\0';
    RtpRtspInfoPrint("RTSP SENDING: \n%s\n\n", text->data);
    text->length = static_cast<int32_t>(Serialise(request, text->data) - text->data);
    return text;
}

int32_t SendRequestMessage(Connection &connection, const RequestMsg *request) {
    const CallTrace trace(__func__);
    if (request == nullptr) return trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Invalid input argument\n");
    if (FindMethod(request->method) == nullptr)
        return trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Invalid RTSP request method\n");
    const RecvBufferPtr text = WriteRequest(*request);
    if (text == nullptr) return trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Memory Allocation Failed\n");
    if (SendWaiting(connection, {text->data, static_cast<std::size_t>(text->length)}) < 0)
        return trace.Fail(RTSP_SEND_FAILED, "\tEXIT : %s :Problem in Sending Request to Server\n");
    return RTSP_SUCCESS;
}

} // namespace rtsptap
