
#include "rtp/rtcp/rtcp_service.h"

#include "platform/printers.h"
#include "platform/system.h"
#include "platform/wire.h"
#include "rtp/rtcp/rtcp_packet.h"
#include "rtp/service_thread.h"
#include "rtp/stream.h"
#include "rtp/udp_reception.h"
#include "rtsp/client/client.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <span>

namespace rtsptap {

// ---- sending ----

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
    if (!SendOrDrop(*stream->client, std::span(frame).first(kFrameHeader + static_cast<std::size_t>(length))))
        return trace.Fail(RTSP_SEND_FAILED, "\tEXIT : %s :Problem in Sending RTCP packet to Server 2\n");
    ShowRtcp(*stream, true, packet, length);
    return RTSP_SUCCESS;
}

// ---- the thread over UDP ----

namespace {

constexpr uint64_t kSilenceMs = 25000; // a report goes out unasked after this
constexpr int kRtcpAreaBytes = 4096;   // longest datagram looked at

using RtcpArea = std::array<uint8_t, kRtcpAreaBytes>;

enum class Pass { kGoOn, kStop };

void SendReport(RTSPStreamInfo &stream, RtcpArea &area) {
    const int32_t length = CreateRRPacket(&stream, area.data(), kRtcpAreaBytes);
    if (length > 0) SendRtcpPacket(&stream, area.data(), length);
}

Pass AnswerDatagram(StreamThread &thread, RTSPStreamInfo &stream, RtcpArea &area) {
    socklen_t addressLength = sizeof stream.rtcpAddr;
    const int received = ReceiveDatagram(stream.rtcpSocket, area.data(), kRtcpAreaBytes, MSG_DONTWAIT,
                                         reinterpret_cast<sockaddr *>(&stream.rtcpAddr), &addressLength);
    // A damaged datagram, which the system has dropped, or an interruption.
    if (received < 0 && (errno == EAGAIN || IsInterrupted(errno))) return Pass::kGoOn;
    if (received < 1) {
        if (MustEnd(thread)) return Pass::kStop;
        puts("Exiting RTCP thread");
        perror("Exiting:");
        return Pass::kStop;
    }
    stream.rtcpSilentSinceMs = MonotonicMs();
    const int32_t stored = std::min(received, kRtcpAreaBytes);
    if (ParseRtcpPacket(&stream, area.data(), stored) == RTSP_SUCCESS) SendReport(stream, area);
    return Pass::kGoOn;
}

// How long the silence may still last, from its begin, whichever thread of the stream's has seen that.
int SilenceLeft(RTSPStreamInfo &stream) {
    const uint64_t now = MonotonicMs();
    if (stream.rtcpSilentSinceMs == 0) stream.rtcpSilentSinceMs = now;
    const uint64_t end = stream.rtcpSilentSinceMs + kSilenceMs;
    return end > now ? static_cast<int>(end - now) : 0;
}

void BreakSilence(RTSPStreamInfo &stream, RtcpArea &area) {
    stream.rtcpSilentSinceMs = 0;
    SendReport(stream, area);
}

Pass ServeOnce(StreamThread &thread, RTSPStreamInfo &stream, RtcpArea &area) {
    pollfd waits[] = {{stream.rtcpSocket, POLLIN, 0}, {thread.wake, POLLIN, 0}};
    const int ready = poll(waits, 2, SilenceLeft(stream));
    if (MustEnd(thread)) return Pass::kStop;
    if (ready < 0 && errno == EINTR) return Pass::kGoOn;
    if (ready < 0) {
        puts("Exiting RTCP thread due to polling error");
        perror("Exiting:");
        return Pass::kStop;
    }
    if ((waits[0].revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
        puts("Exiting RTCP thread due to connection error");
        return Pass::kStop;
    }
    if ((waits[0].revents & POLLIN) != 0) return AnswerDatagram(thread, stream, area);
    BreakSilence(stream, area);
    return Pass::kGoOn;
}

void ForgetSenderReport(RTSPStreamInfo &stream) {
    stream.srHeader = stream.srSenderSsrc = stream.srNtpMsw = stream.srNtpLsw = 0;
    stream.srRtpTimestamp = 0;
    stream.srPacketCount = stream.srOctetCount = 0;
}

void ServeUntilTold(StreamThread &thread, RTSPStreamInfo &stream) {
    RtcpArea area = {};
    Pass pass = Pass::kGoOn;
    while (pass == Pass::kGoOn && !MustEnd(thread)) {
        if (stream.streamState == kStreamPlaying) {
            pass = ServeOnce(thread, stream, area);
        } else if (stream.client->state == CLIENT_INIT_STATE) {
            return;
        } else {
            stream.rtcpSilentSinceMs = 0; // nothing is listened to meanwhile
            MSecDelay(kPausedSleepMs);
        }
    }
}

} // namespace

void ServeRtcp(StreamThread &thread) {
    const CallTrace trace("RTCPDataReceiveThread");
    RTSPStreamInfo &stream = *thread.stream;
    ForgetSenderReport(stream);
    stream.localSsrc = ChooseSsrc(stream);
    if (thread.dataProto == DATA_PROTO_TCP) return;
    if (stream.rtcpSocket < 0) { // poll would pass over it
        puts("Exiting RTCP thread due to connection error");
        return;
    }
    ServeUntilTold(thread, stream);
    // After a hand-over the silence goes on: PLAY, sent more often than it may last, would put the report off for
    // good.
    if (!thread.yield.load(std::memory_order_acquire)) stream.rtcpSilentSinceMs = 0;
}

} // namespace rtsptap
