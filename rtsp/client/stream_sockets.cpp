#include "rtsp/client/stream_sockets.h"

#include "platform/address.h"
#include "platform/system.h"
#include "platform/text.h"
#include "platform/waiting.h"
#include "rtp/media_session.h"
#include "rtp/stream.h"
#include "rtsp/client/client.h"
#include "rtsp/client/exchange.h"

#include <array>
#include <span>

namespace rtsptap {

uint16_t gblClientRtspUdpPort = 2000;

namespace {

constexpr uint32_t kFirstPort = kFirstCommonPort;
constexpr uint32_t kLastPort = kLastCommonPort;
constexpr uint32_t kPortStep = 2; // an RTP port and the RTCP port above it (RFC 3550, 11)
constexpr uint32_t kPortsPerRound = (kLastPort + 1 - kFirstPort) / kPortStep;
constexpr uint32_t kRoundSleepMs = 10;
constexpr int kRtpReceiveBufferBytes = 0x100000;

Address ServerOf(const Exchange &exchange) { return exchange.client->media.server.Get(); }

// `server`: the socket is of its family.
bool BindToPort(int socket, uint32_t port, const Address &server) {
    return port <= UINT16_MAX && BindTo(socket, AnyAddress(static_cast<uint16_t>(port), server));
}

uint16_t CountUp() {
    const uint32_t next = uint32_t{gblClientRtspUdpPort} + kPortStep;
    gblClientRtspUdpPort = static_cast<uint16_t>(next > kLastPort ? kFirstPort : next);
    return gblClientRtspUdpPort;
}

// On a fiber, where nothing may block, all are tried once: false when none is free.
bool BindToNextFreePort(int socket, const Address &server) {
    for (uint32_t attempts = 1;; ++attempts) {
        if (BindToPort(socket, CountUp(), server)) return true;
        if (attempts % kPortsPerRound != 0) continue;
        if (IsOnFiber()) return false;
        MSecDelay(kRoundSleepMs);
    }
}

void UseRtpPort(Exchange &exchange, int socket, uint16_t port) {
    exchange.setup->localPort = port;
    RtpRtspInfoPrint("Using Client Port %d \n", port);
    if (!SizeReceiveBuffer(exchange.client->media, socket, kRtpReceiveBufferBytes))
        RtpRtspInfoPrint(" %s : Failed to set SO_RCVBUF of UDP socket \n", exchange.trace.Function());
}

int32_t BindRtp(Exchange &exchange, int socket) {
    if (exchange.setup->userClientPort == 0) {
        if (!BindToNextFreePort(socket, ServerOf(exchange)))
            return exchange.trace.Fail(RTSP_SOCKET_FAILED, "EXIT : %s :No port is free\n");
    } else {
        gblClientRtspUdpPort = exchange.setup->userClientPort;
        if (!BindToPort(socket, exchange.setup->userClientPort, ServerOf(exchange)))
            return exchange.trace.Fail(
                RTSP_INVALID_HEADER_LIST,
                "EXIT : %s :Can not bind to the user given client port of Transport header \n");
        exchange.setup->stream->clientPort = exchange.setup->userClientPort;
    }
    UseRtpPort(exchange, socket, gblClientRtspUdpPort);
    return RTSP_SUCCESS;
}

// Kept: an RTCP port that is taken fails the SETUP, also after an automatic choice.
int32_t BindRtcp(const Exchange &exchange, int socket) {
    const uint32_t port = uint32_t{exchange.setup->localPort} + 1;
    if (!BindToPort(socket, port, ServerOf(exchange)))
        return exchange.trace.Fail(
            RTSP_INVALID_HEADER_LIST,
            "EXIT : %s :Can not bind to the user given client port of Transport header (RTCP)\n");
    RtpRtspInfoPrint("Using Client RTCP Port %d \n", static_cast<int>(port));
    return RTSP_SUCCESS;
}

// ---- pairs of which both are free ----

bool HasPortsOfItsOwn(const RTSPClient &client) {
    return client.firstPort != kFirstCommonPort || client.lastPort != kLastCommonPort;
}

// RTSP_FAILURE when one is taken.
int32_t OpenPair(Exchange &exchange, uint32_t port) {
    const Address server = ServerOf(exchange);
    UniqueSocket rtp(OpenDatagramSocket(server));
    UniqueSocket rtcp(OpenDatagramSocket(server));
    if (!rtp.IsOpen() || !rtcp.IsOpen())
        return exchange.trace.Fail(RTSP_SOCKET_FAILED, "EXIT : %s :RTSP Client socket creation failed\n");
    if (!BindToPort(rtp.Get(), port, server) || !BindToPort(rtcp.Get(), port + 1, server)) return RTSP_FAILURE;
    UseRtpPort(exchange, rtp.Get(), static_cast<uint16_t>(port));
    exchange.setup->stream->rtpSocket = rtp.Release();
    exchange.setup->stream->rtcpSocket = rtcp.Release();
    return RTSP_SUCCESS;
}

// Counted up for all clients, as single ports are.
int32_t OpenCommonPair(Exchange &exchange) {
    for (uint32_t tried = 0; tried < kPortsPerRound; ++tried) {
        const int32_t result = OpenPair(exchange, CountUp());
        if (result == RTSP_SUCCESS) exchange.setup->stream->clientPort = exchange.setup->localPort;
        if (result != RTSP_FAILURE) return result;
    }
    return exchange.trace.Fail(RTSP_SOCKET_FAILED, "EXIT : %s :No pair of ports is free\n");
}

// Within the client's own range. Counted up here, too: what an earlier session was sent may still come.
int32_t OpenOwnPair(Exchange &exchange) {
    RTSPClient &client = *exchange.client;
    const int64_t first = client.firstPort + client.firstPort % kPortStep;
    for (int64_t tried = first; tried < client.lastPort; tried += kPortStep) {
        const int64_t next = client.lastPortTaken + kPortStep;
        client.lastPortTaken = next < first || next >= client.lastPort ? first : next;
        const int32_t result = OpenPair(exchange, static_cast<uint32_t>(client.lastPortTaken));
        if (result != RTSP_FAILURE) return result;
    }
    return exchange.trace.Fail(RTSP_SOCKET_FAILED, "EXIT : %s :No pair of ports is free in the client's range\n");
}

// As rtsptap.h has it.
int32_t OpenPlainPair(Exchange &exchange) {
    RTSPStreamInfo &stream = *exchange.setup->stream;
    UniqueSocket rtp(OpenDatagramSocket(ServerOf(exchange)));
    if (!rtp.IsOpen())
        return exchange.trace.Fail(RTSP_SOCKET_FAILED, "EXIT : %s :RTSP Client socket creation failed\n");
    UniqueSocket rtcp(OpenDatagramSocket(ServerOf(exchange)));
    if (!rtcp.IsOpen())
        return exchange.trace.Fail(RTSP_SOCKET_FAILED, "EXIT : %s :RTCP Client receive socket creation failed\n");
    if (const int32_t result = BindRtp(exchange, rtp.Get()); result != RTSP_SUCCESS) return result;
    if (const int32_t result = BindRtcp(exchange, rtcp.Get()); result != RTSP_SUCCESS) return result;
    stream.rtpSocket = rtp.Release();
    stream.rtcpSocket = rtcp.Release();
    return RTSP_SUCCESS;
}

int32_t OpenAPair(Exchange &exchange) {
    const SetupParts &setup = *exchange.setup;
    if (HasPortsOfItsOwn(*exchange.client) && setup.userClientPort == 0) return OpenOwnPair(exchange);
    return setup.namesSession && setup.userClientPort == 0 ? OpenCommonPair(exchange) : OpenPlainPair(exchange);
}

} // namespace

int32_t OpenUdpPair(Exchange &exchange) {
    RTSPStreamInfo &stream = *exchange.setup->stream;
    CloseRtpSocket(stream); // of an earlier SETUP of the same stream
    CloseRtcpSocket(stream);
    stream.isMulticast = false;
    stream.reportsTo = {};
    const int32_t result = OpenAPair(exchange);
    return result == RTSP_SUCCESS ? FilterSources(exchange) : result;
}

// In the system, before they take room. A server whose media comes from elsewhere says so.
int32_t FilterSources(const Exchange &exchange) {
    const RTSPStreamInfo &stream = *exchange.setup->stream;
    if (exchange.client->media.filtersSources == 0 || stream.isMulticast) return RTSP_SUCCESS;
    const std::array<Address, 2> hosts = {ServerOf(exchange), stream.reportsTo};
    const std::size_t count = stream.reportsTo.length != 0 ? 2 : 1;
    const auto filter = [&](int socket) { return ReceiveOnlyFrom(socket, std::span(hosts).first(count)); };
    if (filter(stream.rtpSocket) && filter(stream.rtcpSocket)) return RTSP_SUCCESS;
    return exchange.trace.Fail(RTSP_SOCKET_FAILED, "EXIT : %s :The system does not filter the senders\n");
}

namespace {

constexpr std::size_t kLongestIpv4Group = 32; // characters; nothing else is connected to by its address

int32_t TakeGroup(Exchange &exchange, std::string_view transport) {
    RTSPClient &client = *exchange.client;
    const std::string_view address = After(After(transport, "destination"), "=");
    if (address.data() == nullptr)
        return exchange.trace.Fail(RTSP_MULTICAST_FAILED, "EXIT : %s : Destination address is null in response\n");
    const std::string_view group = address.substr(0, address.find(';'));
    if (group.size() > (client.isOpened ? sizeof client.multicastIp - 1 : kLongestIpv4Group))
        return exchange.trace.Fail(RTSP_BAD_RESPONSE, "EXIT : %s : Multicast IP address is too long\n");
    CopyText(client.multicastIp, group);
    client.multicastPort = static_cast<uint16_t>(LeadingNumber(After(address, ";port=")));
    if (client.multicastPort == 0)
        return exchange.trace.Fail(RTSP_MULTICAST_FAILED, "EXIT : %s : Multicast port is invalid in response\n");
    return RTSP_SUCCESS;
}

int32_t OpenGroupSocket(Exchange &exchange, const Address &group) {
    RTSPStreamInfo &stream = *exchange.setup->stream;
    CloseRtpSocket(stream);
    stream.rtpSocket = OpenDatagramSocket(group);
    if (stream.rtpSocket < 0)
        return exchange.trace.Fail(RTSP_MULTICAST_FAILED,
                                   "EXIT : %s :RTSP Client multicast socket creation failed\n");
    if (!SharePort(stream.rtpSocket))
        exchange.trace.Fail(RTSP_MULTICAST_FAILED, "EXIT : %s :Failed to set Reuseaddr \n");
    SizeReceiveBuffer(exchange.client->media, stream.rtpSocket, 0);
    if (!BindTo(stream.rtpSocket, AnyAddress(exchange.client->multicastPort, group)))
        return exchange.trace.Fail(RTSP_MULTICAST_FAILED, "EXIT : %s :Can not bind to multicast port\n");
    return RTSP_SUCCESS;
}

int32_t JoinTheGroup(const Exchange &exchange, const Address &group) {
    const MulticastWays &ways = exchange.client->media.multicast;
    const int socket = exchange.setup->stream->rtpSocket;
    const bool isPrepared = !exchange.setup->asksMulticast || PrepareForGroups(socket, group, ways);
    if (!isPrepared || !JoinGroup(socket, group, ways))
        return exchange.trace.Fail(RTSP_MULTICAST_FAILED, "EXIT : %s :Unable to add membership \n");
    return RTSP_SUCCESS;
}

// Reports of all members go to the port above the group's (RFC 3550, 6 and 11), ours, too.
int32_t OpenGroupRtcp(const Exchange &exchange, const Address &group) {
    RTSPStreamInfo &stream = *exchange.setup->stream;
    CloseRtcpSocket(stream);
    const MulticastWays &ways = exchange.client->media.multicast;
    const auto port = static_cast<uint16_t>(exchange.client->multicastPort + 1);
    UniqueSocket socket(OpenDatagramSocket(group));
    if (!socket.IsOpen() || !SharePort(socket.Get()) || !BindTo(socket.Get(), AnyAddress(port, group)) ||
        !PrepareForGroups(socket.Get(), group, ways) || !JoinGroup(socket.Get(), group, ways))
        return exchange.trace.Fail(RTSP_MULTICAST_FAILED, "EXIT : %s :Unable to receive reports of the group\n");
    stream.rtcpSocket = socket.Release();
    stream.reportsTo = WithPort(group, port);
    return RTSP_SUCCESS;
}

} // namespace

int32_t JoinMulticast(Exchange &exchange, std::string_view transport) {
    if (const int32_t result = TakeGroup(exchange, transport); result != RTSP_SUCCESS) return result;
    const RTSPClient &client = *exchange.client;
    const Address group = ReadAddressLike(ServerOf(exchange), client.multicastIp, client.multicastPort);
    if (const int32_t result = OpenGroupSocket(exchange, group); result != RTSP_SUCCESS) return result;
    exchange.setup->stream->isMulticast = true;
    const int32_t result = JoinTheGroup(exchange, group);
    return result == RTSP_SUCCESS && exchange.setup->asksMulticast ? OpenGroupRtcp(exchange, group) : result;
}

} // namespace rtsptap
