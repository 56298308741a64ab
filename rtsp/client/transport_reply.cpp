#include "rtsp/client/transport_reply.h"

#include "rtp/stream_lifecycle.h"
#include "rtp/stream_record.h"
#include "rtsp/client/client_record.h"
#include "rtsp/client/exchange.h"
#include "rtsp/client/multicast.h"
#include "rtsp/client/reply_status.h"
#include "rtsp/message/response.h"

namespace rtsptap {
namespace {

constexpr int kInterleavedLineNumber = 2534; // what the milestone line has always said

// Kept: the server's RTP port is the second number of the range less one, whatever the first says.
int32_t TakeServerPort(Exchange &exchange, std::string_view value) {
    const std::string_view ports = After(value, "server_port");
    if (ports.data() == nullptr) return RTSP_SUCCESS;
    const auto rtcpPort = static_cast<uint16_t>(LeadingNumber(After(ports, "-")));
    if (rtcpPort == 0)
        return exchange.trace.Fail(RTSP_BAD_NUMBER,
                                   "EXIT : %s :Problem in converting Ascii to Integer value of server_port\n");
    exchange.stream->serverPort = static_cast<uint16_t>(rtcpPort - 1);
    return RTSP_SUCCESS;
}

void TakeChannel(Exchange &exchange, std::string_view value) {
    std::string_view channel = After(value, "interleaved");
    if (channel.data() == nullptr) return;
    if (!channel.empty()) channel.remove_prefix(1); // the '='
    const auto number = static_cast<uint32_t>(LeadingNumber(channel));
    SetChannel(*exchange.stream, number);
    RtpRtspInfoPrint("%s(%d) Interleaved: 0x%02x\n", exchange.trace.Function(), kInterleavedLineNumber, number);
}

} // namespace

int32_t TakeSession(Exchange &exchange) {
    const char *const value = GetResponseHeader(exchange.client->responseMsg, "Session");
    if (value == nullptr) return RTSP_SUCCESS;
    const std::string_view session = SessionToken(value);
    if (session.size() >= sizeof exchange.client->sessionId)
        return exchange.trace.Fail(RTSP_BAD_RESPONSE, "EXIT : %s : Too long SessionID received \n");
    CopyText(exchange.client->sessionId, session);
    return RTSP_SUCCESS;
}

int32_t ApplyTransport(Exchange &exchange) {
    const char *const header = GetResponseHeader(exchange.client->responseMsg, "Transport");
    if (header == nullptr) return RTSP_SUCCESS;
    const std::string_view value = header;
    if (Contains(value, "multicast") && Contains(value, "destination"))
        if (const int32_t result = JoinMulticast(exchange, value); result != RTSP_SUCCESS) return result;
    if (const int32_t result = TakeServerPort(exchange, value); result != RTSP_SUCCESS) return result;
    TakeChannel(exchange, value);
    return RTSP_SUCCESS;
}

} // namespace rtsptap
