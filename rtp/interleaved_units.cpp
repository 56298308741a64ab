#include "rtp/interleaved_units.h"

#include "platform/call_trace.h"
#include "platform/wire.h"
#include "rtp/interleaved_reader.h"
#include "rtp/packet_queue.h"
#include "rtp/receive_thread.h"
#include "rtp/receiver_report.h"
#include "rtp/rtcp_packet.h"
#include "rtp/rtcp_send.h"
#include "rtp/stream_record.h"
#include "rtsp/client/client_record.h"

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

} // namespace

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

} // namespace rtsptap
