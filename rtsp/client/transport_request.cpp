#include "rtsp/client/transport_request.h"

#include "platform/scope.h"
#include "rtp/stream_record.h"
#include "rtsp/client/client_record.h"
#include "rtsp/client/exchange.h"
#include "rtsp/client/registry.h"
#include "rtsp/client/udp_ports.h"
#include "rtsp/message/header_list.h"
#include "rtsp/message/header_slots.h"
#include "rtsp/message/request.h"

#include <cstdio>

namespace rtsptap {
namespace {

constexpr char kTransport[] = "Transport";
constexpr std::size_t kTransportBytes = 58; // the longest value that we build, with its terminator

// The user's value goes out unchanged and leaves the list, which can serve the next stream.
void AddUserTransport(Exchange &exchange) {
    const intptr_t list = exchange.arguments.headerList;
    const RTSPHeaderStruct *const header = GetUserAddedHeaderValue(list, kTransport);
    AddRequestHeader(exchange.client->requestMsg, kTransport, header->headerValue);
    RTSPRemoveHeaderFromList(list, kTransport);
}

void AddOwnTransport(Exchange &exchange) {
    char value[kTransportBytes] = {};
    if (exchange.client->dataProto == DATA_PROTO_UDP) {
        const int port = gblClientRtspUdpPort;
        snprintf(value, sizeof value, "RTP/AVP/UDP;unicast;client_port=%d-%d", port, port + 1);
        exchange.stream->clientPort = gblClientRtspUdpPort;
    } else {
        const auto channel = static_cast<int32_t>(exchange.stream->interleavedChannel);
        snprintf(value, sizeof value, "RTP/AVP/TCP;unicast;interleaved=%d-%d", channel, channel + 1);
    }
    AddRequestHeader(exchange.client->requestMsg, kTransport, value);
}

} // namespace

int32_t TakeUserTransport(Exchange &exchange) {
    if (exchange.arguments.headerList == 0) return RTSP_SUCCESS;
    RTSPHeaderStruct *const header = GetUserAddedHeaderValue(exchange.arguments.headerList, kTransport);
    if (header == nullptr || header->headerValue == nullptr) return RTSP_SUCCESS;
    const std::string_view value = header->headerValue;
    if (exchange.client->dataProto == DATA_PROTO_TCP && !Contains(value, "interleaved="))
        return exchange.trace.Fail(RTSP_INVALID_HEADER_LIST,
                                   "EXIT : %s :Transport header of HeaderList is not valid\n");
    if (const std::string_view port = After(value, "client_port="); port.data() != nullptr) {
        exchange.userClientPort = static_cast<uint16_t>(LeadingNumber(port));
        if (exchange.userClientPort == 0)
            return exchange.trace.Fail(RTSP_BAD_NUMBER,
                                       "EXIT : %s :Problem in converting Ascii to Integer value of client_port\n");
    }
    header->isUsed = 1; // the request does not copy it from the list: it comes last
    exchange.hasUserTransport = true;
    return RTSP_SUCCESS;
}

int32_t PrepareTransport(Exchange &exchange) {
    const ScopedLock ports(gblRTSPClientListLock);
    if (exchange.client->dataProto == DATA_PROTO_UDP)
        if (const int32_t result = OpenUdpPair(exchange); result != RTSP_SUCCESS) return result;
    exchange.hasUserTransport ? AddUserTransport(exchange) : AddOwnTransport(exchange);
    return RTSP_SUCCESS;
}

} // namespace rtsptap
