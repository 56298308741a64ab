#include "rtsp/client/multicast.h"

#include "rtp/stream_record.h"
#include "rtsp/client/client_record.h"
#include "rtsp/client/exchange.h"
#include "rtsp/client/stream_threads.h"

#include <arpa/inet.h>
#include <netinet/in.h>

namespace rtsptap {
namespace {

int32_t TakeGroup(Exchange &exchange, std::string_view transport) {
    RTSPClient &client = *exchange.client;
    const std::string_view address = After(After(transport, "destination"), "=");
    if (address.data() == nullptr)
        return exchange.trace.Fail(RTSP_MULTICAST_FAILED, "EXIT : %s : Destination address is null in response\n");
    const std::string_view group = address.substr(0, address.find(';'));
    if (group.size() >= sizeof client.multicastIp)
        return exchange.trace.Fail(RTSP_BAD_RESPONSE, "EXIT : %s : Multicast IP address is too long\n");
    CopyText(client.multicastIp, group);
    client.multicastPort = static_cast<uint16_t>(LeadingNumber(After(address, ";port=")));
    if (client.multicastPort == 0)
        return exchange.trace.Fail(RTSP_MULTICAST_FAILED, "EXIT : %s : Multicast port is invalid in response\n");
    return RTSP_SUCCESS;
}

int32_t OpenGroupSocket(Exchange &exchange) {
    RTSPStreamInfo &stream = *exchange.stream;
    CloseRtpSocket(stream);
    stream.rtpSocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
    if (stream.rtpSocket < 0)
        return exchange.trace.Fail(RTSP_MULTICAST_FAILED,
                                   "EXIT : %s :RTSP Client multicast socket creation failed\n");
    const int on = 1;
    if (setsockopt(stream.rtpSocket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0)
        exchange.trace.Fail(RTSP_MULTICAST_FAILED, "EXIT : %s :Failed to set Reuseaddr \n");
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(exchange.client->multicastPort);
    if (bind(stream.rtpSocket, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return exchange.trace.Fail(RTSP_MULTICAST_FAILED, "EXIT : %s :Can not bind to multicast port\n");
    return RTSP_SUCCESS;
}

int32_t JoinGroup(const Exchange &exchange) {
    ip_mreq membership = {};
    membership.imr_multiaddr.s_addr = inet_addr(exchange.client->multicastIp);
    membership.imr_interface.s_addr = htonl(INADDR_ANY);
    if (setsockopt(exchange.stream->rtpSocket, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) != 0)
        return exchange.trace.Fail(RTSP_MULTICAST_FAILED, "EXIT : %s :Unable to add membership \n");
    return RTSP_SUCCESS;
}

} // namespace

int32_t JoinMulticast(Exchange &exchange, std::string_view transport) {
    if (const int32_t result = TakeGroup(exchange, transport); result != RTSP_SUCCESS) return result;
    if (const int32_t result = OpenGroupSocket(exchange); result != RTSP_SUCCESS) return result;
    return JoinGroup(exchange);
}

} // namespace rtsptap
