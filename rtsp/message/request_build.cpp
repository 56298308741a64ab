#include "rtsp/message/request_build.h"

#include "platform/call_trace.h"
#include "platform/scope.h"
#include "platform/text.h"
#include "rtp/stream_lifecycle.h"
#include "rtp/stream_record.h"
#include "rtsp/client/client_record.h"
#include "rtsp/message/authorization.h"
#include "rtsp/message/header_list.h"
#include "rtsp/message/method_names.h"
#include "rtsp/message/request.h"

#include <array>
#include <cstdio>
#include <cstring>

namespace rtsptap {

namespace {

// What is printed when a header cannot be added; the second argument is always "User-Agent".
struct NotAddedTexts {
    const char *userGiven;
    const char *byDefault;
};

constexpr NotAddedTexts kUserAgentTexts{
    .userGiven = "\tEXIT : %s :Problem Occurred while Adding Request Header %s\n",
    .byDefault = "\tEXIT : %s :Problem Occurred while Adding Request Header %s\n"};
constexpr NotAddedTexts kAcceptTexts{
    .userGiven = "\tEXIT : %s :Problem Occured while Adding user given 'Accept' Request Header %s\n",
    .byDefault = "\tEXIT : %s :Problem Occured while Adding default 'Accept' Request Header %s\n"};
constexpr NotAddedTexts kSessionTexts{
    .userGiven = "\tEXIT : %s :Problem Occured while Adding user given 'Session' Request Header %s\n",
    .byDefault = "\tEXIT : %s :Problem Occured while Adding default 'Session' Request Header %s\n"};
constexpr NotAddedTexts kRangeTexts{
    .userGiven = "\tEXIT : %s :Problem Occured while Adding user given 'Range' Request Header %s\n",
    .byDefault = "\tEXIT : %s :Problem Occured while Adding default 'Range' Request Header %s\n"};

// A header that a request carries unasked. An entry of that name in the user's list replaces its value.
struct DefaultHeader {
    uint32_t method;
    const char *name;
    const char *value; // kSessionId: the client's session id as it stands, also when empty
    const NotAddedTexts &texts;
    bool laterStreamsOnly = false; // by default left out of the first stream's request
};

constexpr const char *kSessionId = nullptr;
constexpr bool kLaterStreamsOnly = true; // the first SETUP has no session to name yet

constexpr std::array kMethodHeaders = {
    DefaultHeader{RTSP_DESCRIBE, "Accept", "application/sdp", kAcceptTexts},
    DefaultHeader{RTSP_SETUP, "Session", kSessionId, kSessionTexts, kLaterStreamsOnly},
    DefaultHeader{RTSP_PLAY, "Range", "npt=0.000-", kRangeTexts},
    DefaultHeader{RTSP_PLAY, "Session", kSessionId, kSessionTexts},
    DefaultHeader{RTSP_TEARDOWN, "Session", kSessionId, kSessionTexts},
    DefaultHeader{RTSP_PAUSE, "Session", kSessionId, kSessionTexts},
};

// One request under construction. The steps below return false when a header could not be added: the
// request is then sent with the headers it has.
struct Build {
    const CallTrace &trace;
    RTSPClient &client;
    RequestMsg &request;
    intptr_t userList; // may be 0
    int32_t stream;    // 0-based, negative for the whole session
};

void WriteUri(const Build &build) {
    const RTSPClient &client = build.client;
    const uint32_t method = build.request.method;
    char *const uri = build.request.uri;
    std::snprintf(uri, kUriBytes, "%s://%s:%d/%s", "rtsp", client.serverIp, client.serverPort, client.sessionName);

    if (!AddressesStream(method) || client.streamCount < 1 || build.stream < 0) return;
    const RTSPStreamInfo *const stream = FindStreamByNumber(client, build.stream + 1);
    if (stream != nullptr && stream->controlUrl[0] != '\0') {
        CopyText(uri, kUriBytes, stream->controlUrl);
        return;
    }
    const std::size_t length = std::strlen(uri);
    std::snprintf(uri + length, kUriBytes - length, "/trackID=%d", build.stream);
}

int32_t AddSequenceNumber(const Build &build) {
    build.request.cSeq = ++build.client.cSeq; // consumed also when the request is never sent
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
    const char *const value = header.value == kSessionId ? build.client.sessionId : header.value;
    return AddOrReport(build, header.name, value, header.texts.byDefault);
}

bool AddUserAgent(const Build &build) {
    return AddDefaultHeader(build, {build.request.method, "User-Agent", "Rtp Rtsp Client", kUserAgentTexts});
}

bool AddAuthorization(const Build &build) {
    if (build.client.authRequired == 0) return true;
    const HeapText value(GenerateRTSPAuthenticationRequest(&build.client, build.request.uri, build.request.method));
    return !value || AddOrReport(build, "Authorization", value.get(), kAcceptTexts.byDefault);
}

bool AddMethodHeaders(const Build &build) {
    for (const DefaultHeader &header : kMethodHeaders)
        if (header.method == build.request.method && !AddDefaultHeader(build, header)) return false;
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

RequestMsg *GenerateRequestMessage(RTSPClient *rtspClient, uint32_t method, intptr_t userList,
                                   int32_t streamCount) {
    constexpr RequestMsg *kNone = nullptr;
    const CallTrace trace(__func__);
    if (rtspClient == nullptr || method >= kMethodNumbers || streamCount > rtspClient->streamCount)
        return trace.Fail(kNone, "\tEXIT : %s :Invalid input argument\n");
    RequestMsgPtr request = CreateRequestMsg(method);
    if (!request) return trace.Fail(kNone, "\tEXIT : %s :Memory Allocation Failed\n");
    const Build build{trace, *rtspClient, *request, userList, streamCount};
    const ScopeExit clearMarks([userList] { ClearUsedMarks(userList); });

    WriteUri(build);
    RtpRtspInfoPrint("Generated RTSP URI  %s \n", request->uri);
    if (AddSequenceNumber(build) != RTSP_SUCCESS)
        return trace.Fail(kNone, "\tEXIT : %s :Problem Occurred while Adding Request Header \n");
    if (!AddUserAgent(build) || !AddAuthorization(build)) return request.release();
    if (method > RTSP_PAUSE) return trace.Fail(kNone, "\tEXIT : %s :Method is not implemented\n");
    if (AddMethodHeaders(build)) AddRemainingUserHeaders(build);
    return request.release();
}

} // namespace rtsptap
