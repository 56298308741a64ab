#include "rtp/rtcp_send.h"

#include "platform/call_trace.h"
#include "platform/scope.h"
#include "platform/wire.h"
#include "rtp/rtcp_packet.h"
#include "rtp/stream_record.h"
#include "rtsp/client/client_record.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <span>

namespace rtsptap {

namespace {

constexpr int32_t kLongestFrame = 128; // bytes, header included
constexpr int32_t kFrameHeader = 4;    // '$', channel, length of the body
constexpr int kRestTimeoutMs = 1000;   // for the rest of a frame that has been begun

// True when nothing at all can be said of the socket within the time: neither room nor a failure.
bool StaysFull(int socket, int timeoutMs) {
    pollfd wait = {.fd = socket, .events = POLLOUT, .revents = 0};
    return socket >= 0 && poll(&wait, 1, timeoutMs) == 0;
}

// One send; only when the kernel is so short of memory that it takes a part does the rest follow, because a
// frame that has been begun must be finished.
bool SendFrame(int socket, std::span<const uint8_t> frame) {
    ssize_t sent = send(socket, frame.data(), frame.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0) return errno == EAGAIN; // no room after all: dropped
    frame = frame.subspan(static_cast<std::size_t>(sent));
    while (!frame.empty() && !StaysFull(socket, kRestTimeoutMs)) {
        sent = send(socket, frame.data(), frame.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0) return false;
        frame = frame.subspan(static_cast<std::size_t>(sent));
    }
    return frame.empty();
}

// False when sending failed. A report that would have to wait is dropped instead: this thread also reads the
// connection, and the server may be waiting for just that.
bool SendOrDrop(RTSPClient &client, std::span<const uint8_t> frame) {
    if (pthread_mutex_trylock(&client.sendLock) != 0) return true;
    const ScopeExit unlock([&client] { MutexUnlock(&client.sendLock); });
    const int socket = client.rtspSocket.load(std::memory_order_relaxed);
    return StaysFull(socket, 0) || SendFrame(socket, frame);
}

} // namespace

int32_t SendRtcpPacket(RTSPStreamInfo *stream, const uint8_t *packet, int32_t length) {
    const CallTrace trace(__func__);
    if (stream == nullptr) return trace.Fail(RTSP_SUCCESS, "EXIT : %s :Null Pointer Assignment \n");
    const RTSPClient &client = *stream->client;
    if (client.dataProto.load(std::memory_order_relaxed) == DATA_PROTO_TCP) return RTSP_SUCCESS;

    sockaddr_in server = {};
    server.sin_family = AF_INET;
    server.sin_addr.s_addr = client.serverAddress.load(std::memory_order_relaxed);
    server.sin_port = htons(static_cast<uint16_t>(stream->serverPort.load(std::memory_order_relaxed) + 1));
    const ssize_t sent = sendto(stream->rtcpSocket, packet, static_cast<std::size_t>(length), MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr *>(&server), sizeof server);
    if (sent == 0) { // Kept: a failure of sendto itself is not one of ours.
        RtpRtspErrorPrint("Error in Sending RTCP Data\n");
        return RTSP_FAILURE;
    }
    if (sent > 0) ShowRtcp(*stream, true, packet, length);
    return RTSP_SUCCESS;
}

int32_t SendRtcpPacketTCP(RTSPStreamInfo *stream, const uint8_t *packet, int32_t length) {
    const CallTrace trace(__func__);
    if (length >= kLongestFrame - kFrameHeader) {
        RtpRtspErrorPrint("RTCP : %s : Can't send RTCP packet; packet too long %d/%d\n", trace.Function(), length,
                          kLongestFrame);
        return RTSP_FAILURE;
    }
    if (stream == nullptr) return trace.Fail(RTSP_FAILURE, "EXIT : %s :Null Pointer Assignment \n");
    if (stream->client == nullptr || length < 0)
        return trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Invalid input argument\n");

    std::array<uint8_t, kLongestFrame> frame;
    frame[0] = '$';
    frame[1] = static_cast<uint8_t>(stream->interleavedChannel.load(std::memory_order_relaxed) + 1);
    wire::PutU16(&frame[2], static_cast<uint32_t>(length));
    std::memcpy(&frame[kFrameHeader], packet, static_cast<std::size_t>(length));
    if (!SendOrDrop(*stream->client, std::span(frame).first(static_cast<std::size_t>(kFrameHeader + length))))
        return trace.Fail(RTSP_SEND_FAILED, "\tEXIT : %s :Problem in Sending RTCP packet to Server 2\n");
    ShowRtcp(*stream, true, packet, length);
    return RTSP_SUCCESS;
}

} // namespace rtsptap
