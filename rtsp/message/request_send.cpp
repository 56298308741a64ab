#include "rtsp/message/request_send.h"

#include "platform/call_trace.h"
#include "platform/scope.h"
#include "platform/text.h"
#include "rtsp/client/client_record.h"
#include "rtsp/message/method_names.h"
#include "rtsp/message/request.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string_view>
#include <sys/socket.h>

namespace rtsptap {

namespace {

constexpr std::size_t kRequestLineExtra = 10; // the longest method name and two spaces
constexpr std::size_t kSeparator = 2;         // colon and space
constexpr std::size_t kLineEnd = 2;           // CR and LF

bool HasWireName(uint32_t method) { return method <= RTSP_PAUSE; }

// Room for the whole text and its terminator.
std::size_t SerialisedSize(const RequestMsg &request) {
    std::size_t size = std::strlen(request.uri) + kRequestLineExtra + std::strlen(request.version) + kLineEnd;
    for (uint32_t i = 0; i < request.headerCount; ++i)
        size += std::strlen(request.headers[i].headerName) + kSeparator +
                std::strlen(request.headers[i].headerValue) + kLineEnd;
    return size + kLineEnd + 1;
}

char *Append(char *end, std::initializer_list<std::string_view> pieces) {
    for (const std::string_view piece : pieces) end = std::copy(piece.begin(), piece.end(), end);
    return end;
}

// Writes what SerialisedSize made room for; returns the end of the text.
char *Serialise(const RequestMsg &request, char *text) {
    char *end = Append(text, {MethodName(request.method), " ", request.uri, " ", request.version, "\r\n"});
    for (uint32_t i = 0; i < request.headerCount; ++i)
        end = Append(end, {request.headers[i].headerName, ": ", request.headers[i].headerValue, "\r\n"});
    return Append(end, {"\r\n"});
}

// One send, never repeated. The lock keeps reports of an interleaved connection out of the request's bytes.
ssize_t SendOnce(RTSPClient &client, std::string_view text) {
    const ScopedLock lock(client.sendLock);
    return send(client.rtspSocket, text.data(), text.size(), MSG_NOSIGNAL);
}

} // namespace

int32_t SendRequestMessage(RTSPClient *rtspClient) {
    const CallTrace trace(__func__);
    if (rtspClient == nullptr || rtspClient->requestMsg == nullptr)
        return trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Invalid input argument\n");
    const RequestMsg &request = *rtspClient->requestMsg;
    const HeapText text(static_cast<char *>(std::calloc(SerialisedSize(request), 1)));
    if (!text) return trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Memory Allocation Failed\n");
    if (!HasWireName(request.method)) return trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Invalid RTSP request method\n");

    const char *const end = Serialise(request, text.get());
    RtpRtspInfoPrint("RTSP SENDING: \n%s\n\n", text.get());
    if (SendOnce(*rtspClient, {text.get(), end}) < 0)
        return trace.Fail(RTSP_SEND_FAILED, "\tEXIT : %s :Problem in Sending Request to Server\n");
    return RTSP_SUCCESS;
}

} // namespace rtsptap
