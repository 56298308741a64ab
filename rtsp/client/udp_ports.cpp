#include "rtsp/client/udp_ports.h"

#include "platform/scope.h"
#include "rtp/stream_record.h"
#include "rtsp/client/exchange.h"
#include "rtsp/client/stream_threads.h"

#include <netinet/in.h>

namespace rtsptap {

uint16_t gblClientRtspUdpPort = 2000;

namespace {

constexpr uint32_t kFirstPort = 2000;
constexpr uint32_t kLastPort = 59999;
constexpr uint32_t kPortStep = 2; // an RTP port and the RTCP port above it (RFC 3550, 11)
constexpr uint32_t kPortsPerRound = (kLastPort + 1 - kFirstPort) / kPortStep;
constexpr uint32_t kRoundSleepMs = 10;
constexpr int kRtpReceiveBufferBytes = 0x100000;

bool BindToPort(int socket, uint32_t port) {
    if (port > UINT16_MAX) return false;
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(static_cast<uint16_t>(port));
    return bind(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
}

void BindToNextFreePort(int socket) {
    for (uint32_t attempts = 1;; ++attempts) {
        const uint32_t next = uint32_t{gblClientRtspUdpPort} + kPortStep;
        gblClientRtspUdpPort = static_cast<uint16_t>(next > kLastPort ? kFirstPort : next);
        if (BindToPort(socket, gblClientRtspUdpPort)) return;
        if (attempts % kPortsPerRound == 0) MSecDelay(kRoundSleepMs);
    }
}

int32_t BindRtp(Exchange &exchange, int socket) {
    if (exchange.userClientPort == 0) {
        BindToNextFreePort(socket);
    } else {
        gblClientRtspUdpPort = exchange.userClientPort;
        if (!BindToPort(socket, exchange.userClientPort))
            return exchange.trace.Fail(
                RTSP_INVALID_HEADER_LIST,
                "EXIT : %s :Can not bind to the user given client port of Transport header \n");
        exchange.stream->clientPort = exchange.userClientPort;
    }
    RtpRtspInfoPrint("Using Client Port %d \n", gblClientRtspUdpPort);
    if (setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &kRtpReceiveBufferBytes, sizeof kRtpReceiveBufferBytes) != 0)
        RtpRtspInfoPrint(" %s : Failed to set SO_RCVBUF of UDP socket \n", exchange.trace.Function());
    return RTSP_SUCCESS;
}

// Kept: an RTCP port that is taken fails the SETUP, also after an automatic choice.
int32_t BindRtcp(const Exchange &exchange, int socket) {
    const uint32_t port = uint32_t{gblClientRtspUdpPort} + 1;
    if (!BindToPort(socket, port))
        return exchange.trace.Fail(
            RTSP_INVALID_HEADER_LIST,
            "EXIT : %s :Can not bind to the user given client port of Transport header (RTCP)\n");
    RtpRtspInfoPrint("Using Client RTCP Port %d \n", static_cast<int>(port));
    return RTSP_SUCCESS;
}

} // namespace

int32_t OpenUdpPair(Exchange &exchange) {
    RTSPStreamInfo &stream = *exchange.stream;
    CloseRtpSocket(stream); // of an earlier SETUP of the same stream
    CloseRtcpSocket(stream);
    UniqueSocket rtp(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP));
    if (!rtp.IsOpen())
        return exchange.trace.Fail(RTSP_SOCKET_FAILED, "EXIT : %s :RTSP Client socket creation failed\n");
    UniqueSocket rtcp(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP));
    if (!rtcp.IsOpen())
        return exchange.trace.Fail(RTSP_SOCKET_FAILED, "EXIT : %s :RTCP Client receive socket creation failed\n");
    if (const int32_t result = BindRtp(exchange, rtp.Get()); result != RTSP_SUCCESS) return result;
    if (const int32_t result = BindRtcp(exchange, rtcp.Get()); result != RTSP_SUCCESS) return result;
    stream.rtpSocket = rtp.Release();
    stream.rtcpSocket = rtcp.Release();
    return RTSP_SUCCESS;
}

} // namespace rtsptap
