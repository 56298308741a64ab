#include "rtp/rtcp/rtcp.h"

#include "platform/printers.h"
#include "platform/system.h"
#include "platform/wire.h"
#include "rtp/interleaved/sending.h"
#include "rtp/media_session.h"
#include "rtp/protection.h"
#include "rtp/rtcp/goodbye.h"
#include "rtp/rtcp/true_reports.h"
#include "rtp/service_thread.h"
#include "rtp/serving.h"
#include "rtp/stream.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <poll.h>

namespace rtsptap {

// ---- sending ----

namespace {

constexpr int32_t kLongestFrame = 128; // bytes, header included
constexpr int32_t kFrameHeader = 4;    // '$', channel, length of the body
constexpr int kRestTimeoutMs = 1000;   // for the rest of a frame that has been begun

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
bool SendOrDrop(Connection &connection, std::span<const uint8_t> frame) {
    if (pthread_mutex_trylock(&connection.sendLock) != 0) return true;
    const ScopeExit unlock([&connection] { MutexUnlock(&connection.sendLock); });
    const int socket = connection.socket; // what connect(2) did to it is seen with it
    if (!IsClear(connection)) return true;
    if (const ByteStream *const stream = FindByteStream(connection.streams, socket); stream != nullptr)
        return WriteThrough(connection, *stream, frame) != Sent::kFailed;
    return StaysFull(socket, 0) || SendFrame(socket, frame);
}

} // namespace

namespace {

constexpr std::size_t kLongestProtected = 1024; // bytes; reports of ours are far shorter

// The packet as it is to be sent, in `room`; null when it cannot be.
const uint8_t *Protect(const RTSPStreamInfo &stream, std::span<uint8_t> room, const uint8_t *packet,
                       int32_t &size) {
    const auto length = static_cast<std::size_t>(size);
    if (size < 0 || length + kMostProtection > room.size()) return nullptr;
    std::memcpy(room.data(), packet, length);
    return ProtectRtcp(stream, room, size) ? room.data() : nullptr;
}

// A server that named no port hears no reports, rather than whoever has port 1.
bool HasNoReportPort(const RTSPStreamInfo &stream) {
    return stream.serverPort.load(std::memory_order_relaxed) == 0 &&
           stream.session->dialect.IsOn(Rule::kSinglePort);
}

} // namespace

int32_t SendRtcpPacket(RTSPStreamInfo *stream, const uint8_t *packet, int32_t length) {
    const CallTrace trace(__func__);
    if (stream == nullptr) return trace.Fail(RTSP_SUCCESS, "EXIT : %s :Null Pointer Assignment \n");
    if (stream->session->dataProto.load(std::memory_order_relaxed) == DATA_PROTO_TCP) return RTSP_SUCCESS;
    const bool hasOwnAim = stream->reportsTo.length != 0;
    if (!hasOwnAim && HasNoReportPort(*stream)) return RTSP_SUCCESS;
    std::array<uint8_t, kLongestProtected> room;
    int32_t size = length;
    const uint8_t *const bytes = stream->protection != nullptr ? Protect(*stream, room, packet, size) : packet;
    if (bytes == nullptr) return RTSP_FAILURE;
    const auto port = static_cast<uint16_t>(stream->serverPort.load(std::memory_order_relaxed) + 1);
    const ssize_t sent = SendTo(stream->rtcpSocket, bytes, static_cast<std::size_t>(size),
                                hasOwnAim ? stream->reportsTo : WithPort(stream->session->server.Get(), port));
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
    if (stream->session == nullptr || length < 0)
        return trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Invalid input argument\n");

    std::array<uint8_t, kLongestFrame + kMostProtection> frame;
    int32_t size = length;
    frame[0] = '$';
    frame[1] = static_cast<uint8_t>(stream->interleavedChannel.load(std::memory_order_relaxed) + 1);
    std::memcpy(&frame[kFrameHeader], packet, static_cast<std::size_t>(length));
    if (!ProtectRtcp(*stream, std::span(frame).subspan(kFrameHeader), size)) return RTSP_FAILURE;
    wire::PutU16(&frame[2], static_cast<uint32_t>(size));
    if (!SendOrDrop(stream->session->connection,
                    std::span(frame).first(kFrameHeader + static_cast<std::size_t>(size))))
        return trace.Fail(RTSP_SEND_FAILED, "\tEXIT : %s :Problem in Sending RTCP packet to Server 2\n");
    ShowRtcp(*stream, true, packet, length);
    return RTSP_SUCCESS;
}

namespace {

constexpr int kRtcpAreaBytes = 4096; // longest packet looked at

using RtcpArea = std::array<uint8_t, kRtcpAreaBytes>;

void AnswerFrame(RTSPStreamInfo &stream, std::span<const uint8_t> packet) {
    if (ParseRtcpPacket(&stream, packet.data(), static_cast<int32_t>(packet.size())) != RTSP_SUCCESS) return;
    std::array<uint8_t, 512> report = {};
    const int32_t length = CreateRRPacket(&stream, report.data(), static_cast<int32_t>(report.size()));
    if (length > 0) SendRtcpPacketTCP(&stream, report.data(), length);
}

} // namespace

void AnswerInterleavedRtcp(RTSPStreamInfo &stream, std::span<const uint8_t> packet) {
    if (stream.protection == nullptr) return AnswerFrame(stream, packet);
    RtcpArea area; // what was read is not written to
    auto size = static_cast<int32_t>(std::min(packet.size(), area.size()));
    std::memcpy(area.data(), packet.data(), static_cast<std::size_t>(size));
    if (UnprotectRtcp(stream, area.data(), size))
        AnswerFrame(stream, std::span(area).first(static_cast<std::size_t>(size)));
}

// ---- the service over UDP ----

namespace {

constexpr uint64_t kSilenceMs = 25000; // a report goes out unasked after this
void SendReport(RTSPStreamInfo &stream, RtcpArea &area) {
    const int32_t length = CreateRRPacket(&stream, area.data(), kRtcpAreaBytes);
    if (length > 0) SendRtcpPacket(&stream, area.data(), length);
}

Served EndForError(const char *line) {
    const int error = errno;
    PrintEvent("%s\n", line);
    PrintSystemError(error, "Exiting:");
    return Served::kEnded;
}

Served AnswerDatagram(const StreamThread &thread, RTSPStreamInfo &stream, RtcpArea &area) {
    const int received =
        ReceiveDatagram(stream.rtcpSocket, area.data(), kRtcpAreaBytes, MSG_DONTWAIT, nullptr, nullptr);
    // A damaged datagram, which the system has dropped, or an interruption.
    if (received < 0 && (errno == EAGAIN || IsInterrupted(errno))) return Served::kNothingLeft;
    if (received == 0 && !MustEnd(thread) && stream.session->dialect.Permits(Rule::kEmptyDatagram))
        return Served::kNothingLeft;
    if (received < 1) return MustEnd(thread) ? Served::kEnded : EndForError("Exiting RTCP thread");
    int32_t stored = std::min(received, kRtcpAreaBytes);
    if (!UnprotectRtcp(stream, area.data(), stored)) return Served::kNothingLeft;
    stream.rtcp.silentSinceMs = MonotonicMs();
    if (ParseRtcpPacket(&stream, area.data(), stored) == RTSP_SUCCESS) SendReport(stream, area);
    return Served::kNothingLeft;
}

// How long the silence may still last, from its begin, whichever thread of the stream's has seen that.
int SilenceLeft(RTSPStreamInfo &stream) {
    const uint64_t now = MonotonicMs();
    if (stream.rtcp.silentSinceMs == 0) stream.rtcp.silentSinceMs = now;
    const uint64_t end = stream.rtcp.silentSinceMs + kSilenceMs;
    return end > now ? static_cast<int>(end - now) : 0;
}

void BreakSilence(RTSPStreamInfo &stream, RtcpArea &area) {
    stream.rtcp.silentSinceMs = 0;
    SendReport(stream, area);
}

bool Open(StreamThread &thread) {
    RTSPStreamInfo &stream = *thread.stream;
    stream.rtcp.senderReport = {};
    stream.srRtpTimestamp = 0;
    if (!ReportsTruly(stream) || stream.localSsrc == 0) stream.localSsrc = ChooseSsrc(stream);
    if (thread.dataProto == DATA_PROTO_TCP) return false;
    if (stream.rtcpSocket >= 0) return true;
    PrintEvent("Exiting RTCP thread due to connection error\n"); // poll would pass over it
    return false;
}

bool IsActive(RTSPStreamInfo &stream) {
    const bool plays = stream.streamState == kStreamPlaying;
    if (!plays) stream.rtcp.silentSinceMs = 0; // nothing is listened to meanwhile
    return plays;
}

Served Serve(StreamThread &thread, const Readiness &readiness) {
    RTSPStreamInfo &stream = *thread.stream;
    RtcpArea area;
    if (readiness.failed) return EndForError("Exiting RTCP thread due to polling error");
    if ((readiness.events & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
        PrintEvent("Exiting RTCP thread due to connection error\n");
        return Served::kEnded;
    }
    if (ReportsTruly(stream)) SendDueReport(stream);
    JudgeGoodbye(stream);
    if ((readiness.events & POLLIN) != 0) return AnswerDatagram(thread, stream, area);
    if (!ReportsTruly(stream) && SilenceLeft(stream) == 0) BreakSilence(stream, area);
    return Served::kNothingLeft;
}

int WaitMs(RTSPStreamInfo &stream) {
    return Sooner(ReportsTruly(stream) ? ReportWaitMs(stream) : SilenceLeft(stream), GoodbyeDueIn(stream));
}

int Socket(const RTSPStreamInfo &stream) { return stream.rtcpSocket; }

// After a hand-over the silence goes on: PLAY, sent more often than it may last, would put the report off for good.
void Close(StreamThread &thread) {
    if (!thread.yield.load(std::memory_order_acquire)) thread.stream->rtcp.silentSinceMs = 0;
}

} // namespace

constinit const Service kRtcpService{
    .threadName = "RTCPDataReceiveThread",
    .open = Open,
    .isActive = IsActive,
    .serve = Serve,
    .socket = Socket,
    .waitMs = WaitMs,
    .dueMs = WaitMs,
    .close = Close,
};

} // namespace rtsptap
