#include "rtp/rtcp_thread.h"

#include "platform/call_trace.h"
#include "platform/clock.h"
#include "platform/socket.h"
#include "rtp/receive_thread.h"
#include "rtp/receiver_report.h"
#include "rtp/rtcp_packet.h"
#include "rtp/rtcp_send.h"
#include "rtp/stream_record.h"
#include "rtp/stream_thread.h"
#include "rtsp/client/client_record.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <poll.h>

namespace rtsptap {
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
