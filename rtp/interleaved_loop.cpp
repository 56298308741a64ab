#include "rtp/interleaved_loop.h"

#include "platform/call_trace.h"
#include "platform/clock.h"
#include "platform/wire.h"
#include "rtp/interleaved_reader.h"
#include "rtp/interleaved_reply.h"
#include "rtp/packet_queue.h"
#include "rtp/receive_thread.h"
#include "rtp/receiver_report.h"
#include "rtp/rtcp_packet.h"
#include "rtp/rtcp_send.h"
#include "rtp/stream_record.h"
#include "rtp/stream_thread.h"
#include "rtsp/client/client_record.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <span>

namespace rtsptap {
namespace {

// An interleaved frame (RFC 2326, 10.12):
//
//     0        1         2          3
//     | '$'    | channel | body length, big-endian | body ...
struct Frame {
    uint8_t channel = 0;
    std::span<const uint8_t> body;
    bool followedReply = false; // came whole, and more behind it, in one read with a reply
};

struct Route {
    RTSPStreamInfo *stream = nullptr;
    bool isRtcp = false;
};

constexpr std::string_view kReplyStart = "RTSP";

enum class Unit { kHandled, kIncomplete, kNoMemory };

// The first stream in description order that has the channel for RTP or, one above, for RTCP.
Route FindRoute(const RTSPClient &client, uint32_t channel) {
    RTSPStreamInfo *stream = client.streamList.load(std::memory_order_acquire);
    for (; stream != nullptr; stream = stream->next.load(std::memory_order_acquire)) {
        const uint32_t rtpChannel = stream->interleavedChannel;
        if (rtpChannel == channel) return {stream, false};
        if (rtpChannel + 1 == channel) return {stream, true};
    }
    return {};
}

bool TakesFrames(const Route &route) {
    if (route.stream == nullptr || !route.stream->takesFrames) return false;
    return route.isRtcp || route.stream->receiving;
}

void AnswerRtcp(RTSPStreamInfo &stream, std::span<const uint8_t> packet) {
    if (ParseRtcpPacket(&stream, packet.data(), static_cast<int32_t>(packet.size())) != RTSP_SUCCESS) return;
    std::array<uint8_t, 512> report = {};
    const int32_t length = CreateRRPacket(&stream, report.data(), static_cast<int32_t>(report.size()));
    if (length > 0) SendRtcpPacketTCP(&stream, report.data(), length);
}

// Tells why a frame finds no room, or that the ring went back to its start.
void PrintRing(RingRoom verdict, const ReceiveRing &ring, int64_t writeIndex, uint32_t channel) {
    const auto reader = static_cast<uint32_t>(ring.readIndex.load(std::memory_order_relaxed));
    const auto writer = static_cast<uint32_t>(writeIndex);
    switch (verdict) {
    case RingRoom::kReady:
        break;
    case RingRoom::kWrapped:
        printf("TCP read buffer reset wr (2) rd:%u  wr:%u stream:%u\n", reader, writer, channel);
        break;
    case RingRoom::kFullBehind:
        printf("TCP read buffer full (1) rd:%u  wr:%u stream:%u\n", reader, writer, channel);
        break;
    case RingRoom::kFullAtEnd:
        printf("Data full reset to 0 location, %u, %u, %u   stream:%u\n", static_cast<uint32_t>(ring.bufferEnd),
               writer, reader, channel);
        break;
    }
}

bool FindFrameRoom(RTSPStreamInfo &stream, const Frame &frame) {
    const uint32_t mtu = stream.client->mtuSize;
    const auto needed = static_cast<int64_t>(frame.body.size());
    const int64_t writeIndex = stream.ring.writeIndex;
    RingPlace place = PlaceNextPacket(stream.ring, mtu);
    if (place.room < needed && NothingInUse(stream)) {
        EmptyRing(stream.ring);
        place = PlaceNextPacket(stream.ring, mtu);
    }
    const bool fits = place.room >= needed;
    if (!fits && place.verdict != RingRoom::kFullAtEnd) place.verdict = RingRoom::kFullBehind;
    PrintRing(place.verdict, stream.ring, writeIndex, frame.channel);
    return fits;
}

void AcceptFrame(RTSPStreamInfo &stream, const Frame &frame) {
    if (!frame.body.empty())
        memcpy(stream.ring.storage + stream.ring.writeIndex, frame.body.data(), frame.body.size());
    const ArrivalRules rules{.reorder = false, .announceDrops = frame.followedReply, .channel = frame.channel};
    AcceptPacket(stream, static_cast<uint32_t>(frame.body.size()), rules,
                 frame.followedReply ? FailureText("%s :Invalid packet received ignoring\n")
                                     : FailureText("%s: Invalid packet received ignoring\n"));
    stream.signalDue = true;
}

// A header that leads nowhere is dropped alone: the bytes behind it are looked at four by four until a
// header lines up again.
Unit DropHeader(InterleavedReader &reader) {
    Consume(reader, kFrameHeaderBytes);
    reader.outOfStep = true;
    return Unit::kHandled;
}

// A reply that somebody waits for is found wherever it begins among bytes out of step. A full buffer, whose frames
// are not consumed, would cost three of four otherwise, and with them PAUSE and TEARDOWN.
std::size_t CorruptedBytes(const RTSPClient &client, const InterleavedReader &reader) {
    const std::string_view text = BufferedText(reader);
    for (std::size_t at = 1; client.awaitingReply && at < kFrameHeaderBytes; ++at)
        if (kReplyStart.starts_with(text.substr(at, kReplyStart.size()))) return at;
    return kFrameHeaderBytes;
}

Unit TakeFrame(RTSPClient &client, InterleavedReader &reader) {
    const uint8_t *const header = reader.bytes + reader.begin;
    if (header[0] != '$') {
        puts("Error: corrupted stream ($/RTSP not found)");
        Consume(reader, CorruptedBytes(client, reader));
        return Unit::kHandled;
    }
    const std::size_t length = wire::U16(header + 2);
    if (length > client.mtuSize) {
        printf("Error: interleaved frame in RTP stream is too large (%u)\n", static_cast<unsigned>(length));
        return DropHeader(reader);
    }
    const Route route = FindRoute(client, header[1]);
    if (!TakesFrames(route)) return DropHeader(reader);
    const std::size_t whole = kFrameHeaderBytes + length;
    if (Buffered(reader) < whole) return Unit::kIncomplete;

    const Frame frame{header[1], {header + kFrameHeaderBytes, length}, whole < reader.replyTail};
    if (route.isRtcp)
        AnswerRtcp(*route.stream, frame.body);
    else if (!OpenRing(*route.stream))
        return Unit::kNoMemory;
    else if (FindFrameRoom(*route.stream, frame))
        AcceptFrame(*route.stream, frame);
    else
        return DropHeader(reader);
    Consume(reader, whole);
    reader.outOfStep = false;
    return Unit::kHandled;
}

Unit TakeReplyUnit(RTSPClient &client, InterleavedReader &reader, ReplyEnd rule, bool final) {
    switch (TakeReply(client, reader, rule, final)) {
    case ReplyStatus::kTaken:
        return Unit::kHandled;
    case ReplyStatus::kIncomplete:
        return Unit::kIncomplete;
    case ReplyStatus::kNoMemory:
        break;
    }
    return Unit::kNoMemory;
}

// Where a reply is all that is awaited, any text is taken for it, but not the body of a frame that was dropped.
bool ReplyStandsNext(const InterleavedReader &reader, ReplyEnd rule) {
    const std::string_view text = BufferedText(reader);
    if (rule == ReplyEnd::kBlankLine && !reader.outOfStep) return !text.empty() && !text.starts_with('$');
    return text.starts_with(kReplyStart);
}

void SignalDueStreams(const RTSPClient &client) {
    RTSPStreamInfo *stream = client.streamList.load(std::memory_order_acquire);
    for (; stream != nullptr; stream = stream->next.load(std::memory_order_acquire)) {
        if (!stream->signalDue) continue;
        stream->signalDue = false;
        SignalReaders(*stream);
    }
}

// Handles what lies complete in the reader. Readers are signalled once for all of it.
Unit TakeBufferedUnits(RTSPClient &client, InterleavedReader &reader, ReplyEnd rule, bool final) {
    Unit unit = Unit::kHandled;
    while (unit == Unit::kHandled) {
        if (ReplyStandsNext(reader, rule)) {
            unit = TakeReplyUnit(client, reader, rule, final);
            if (rule == ReplyEnd::kBlankLine) break;
        } else if (Buffered(reader) >= kFrameHeaderBytes) {
            unit = TakeFrame(client, reader);
            // A frame without a ring does not fail the exchange that awaits its reply: the thread will tell.
            if (unit == Unit::kNoMemory && rule == ReplyEnd::kBlankLine) unit = DropHeader(reader);
        } else {
            break;
        }
    }
    SignalDueStreams(client);
    if (unit == Unit::kNoMemory)
        RtpRtspErrorPrint("EXIT : %s : %d Memory Allocation Failed\n", "RTPDataReceiveThread", __LINE__);
    return unit;
}

// A description may have thousands of streams: a ring is planned for every one that is to take frames, and made
// when the first frame comes. A stream described later takes none.
void PlanRings(const RTSPClient &client) {
    RTSPStreamInfo *stream = client.streamList.load(std::memory_order_acquire);
    for (; stream != nullptr; stream = stream->next.load(std::memory_order_acquire)) {
        if (!stream->takesFrames) continue;
        PlanRing(*stream);
        stream->receiving = true;
        stream->localSsrc = ChooseSsrc(*stream);
    }
}

void CloseRings(const RTSPClient &client) {
    RTSPStreamInfo *stream = client.streamList.load(std::memory_order_acquire);
    for (; stream != nullptr; stream = stream->next.load(std::memory_order_acquire)) stream->receiving = false;
}

bool AnyStreamPlays(const RTSPClient &client) {
    const RTSPStreamInfo *stream = client.streamList.load(std::memory_order_acquire);
    while (stream != nullptr && stream->streamState != kStreamPlaying)
        stream = stream->next.load(std::memory_order_acquire);
    return stream != nullptr;
}

// In a turn: waits up to `timeoutMs` for more and handles what is there. False, and no more turns, when the
// connection is closed or memory short.
bool ServeOnce(RTSPClient &client, int timeoutMs) {
    InterleavedReader *const reader = OpenReader(client);
    client.turn.ended = client.turn.ended || reader == nullptr || reader->socket < 0;
    if (client.turn.ended) return false;
    ChangeWatch(client.turn, reader->socket);
    const int graceLeft = ReplyGraceLeft(*reader);
    const Fill fill = FillReader(*reader, graceLeft < 0 ? timeoutMs : std::min(timeoutMs, graceLeft));
    if (fill == Fill::kClosed) DebugPrint(kDebugEntry, "Stopping Thread \n");
    const Unit unit = TakeBufferedUnits(client, *reader, ReplyEnd::kFirstDollar, fill == Fill::kClosed);
    client.turn.ended = fill == Fill::kClosed || unit == Unit::kNoMemory;
    return !client.turn.ended;
}

// The thread's turn, when no reader has it, then its wait for more. False ends the thread.
bool ServeAsThread(RTSPClient &client, const StreamThread &thread) {
    {
        const ScopedTurn turn(client.turn, ScopedTurn::kTry);
        if (turn.IsMine() && !ServeOnce(client, 0)) return false;
        if (turn.IsMine()) WatchSocket(client.turn, true);
    }
    WaitAtWatch(thread, client.turn.watch);
    return true;
}

// False when the thread cannot serve the connection.
bool OpenService(StreamThread &thread, RTSPClient &client) {
    const ScopedTurn turn(client.turn, ScopedTurn::kWait);
    thread.stream->baseSeqNum = -1;
    PlanRings(client);
    return OpenWatch(client.turn, thread, client.rtspSocket);
}

void CloseService(RTSPClient &client) {
    const ScopedTurn turn(client.turn, ScopedTurn::kWait);
    CloseWatch(client.turn);
    CloseRings(client);
}

} // namespace

void ServeInterleavedConnection(StreamThread &thread) {
    const CallTrace trace("RTPDataReceiveThread");
    RTSPClient &client = *thread.stream->client;
    if (!OpenService(thread, client)) {
        RtpRtspErrorPrint("EXIT : %s : %d Memory Allocation Failed\n", trace.Function(), __LINE__);
        return;
    }
    while (!MustEnd(thread)) {
        if (AnyStreamPlays(client) || client.awaitingReply) {
            if (!ServeAsThread(client, thread)) break;
        } else if (client.state == CLIENT_INIT_STATE) {
            break;
        } else {
            MSecDelay(kPausedSleepMs);
        }
    }
    CloseService(client);
}

bool ServeAsReader(RTSPStreamInfo &stream, uint64_t deadlineMs) {
    RTSPClient &client = *stream.client;
    const ScopedTurn turn(client.turn, ScopedTurn::kTry);
    if (!turn.IsMine() || client.turn.thread == nullptr || client.turn.ended || !stream.receiving) return false;
    WatchSocket(client.turn, false);
    const uint32_t before = stream.handled;
    const StreamThread &thread = *client.turn.thread;
    while (stream.handled == before && stream.streamState == kStreamPlaying && !MustEnd(thread) &&
           GetTimeValue() < deadlineMs && ServeOnce(client, kTurnSliceMs)) {
    }
    if (client.turn.ended)
        WakeStreamThread(thread);
    else
        WatchSocket(client.turn, true);
    return stream.handled != before;
}

RecvBufferPtr ReceiveReplyAmongFrames(RTSPClient &client, int32_t &failure) {
    const CallTrace trace("ClientReadMessage");
    failure = RTSP_NO_RESPONSE;
    InterleavedReader *const reader = OpenReader(client);
    if (reader == nullptr) return nullptr;
    PlanRings(client);
    const uint64_t deadline = MonotonicMs() + kReplyTimeoutMs;
    bool closed = false;
    while (client.recvData == nullptr) {
        if (TakeBufferedUnits(client, *reader, ReplyEnd::kBlankLine, closed) == Unit::kNoMemory || closed) break;
        if (client.recvData != nullptr) break;
        const uint64_t now = MonotonicMs();
        if (now >= deadline) {
            failure = trace.Fail(RTSP_RESPONSE_TIMEOUT, "\tEXIT : %s :No data received and timeout the session\n");
            break;
        }
        const int grace = ReplyGraceLeft(*reader);
        closed = FillReader(*reader, grace >= 0 ? grace : static_cast<int>(deadline - now)) == Fill::kClosed;
    }
    return RecvBufferPtr(client.recvData.exchange(nullptr));
}

} // namespace rtsptap
