
#include "rtp/interleaved/splitter.h"

#include "platform/printers.h"
#include "platform/system.h"
#include "platform/text.h"
#include "platform/wire.h"
#include "rtp/interleaved/connection.h"
#include "rtp/packet_queue.h"
#include "rtp/rtcp/rtcp_packet.h"
#include "rtp/rtcp/rtcp_service.h"
#include "rtp/stream.h"
#include "rtp/udp_reception.h"
#include "rtsp/client/client.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <span>
#include <utility>

namespace rtsptap {

namespace {

// The Content-Length of the header lines, 0 when there is none.
std::size_t BodyLength(std::string_view head) {
    std::string_view line;
    while (NextLine(head, line)) {
        std::string_view name;
        if (Until(line, ':', name) && EqualIgnoringCase(name, "Content-Length"))
            return static_cast<std::size_t>(std::max(LeadingNumber(line), 0));
    }
    return 0;
}

// The length of status line and headers with the blank line behind them; npos while it may still come. Lines end as
// the parser ends them, at any run of CR and LF: one with two LFs, or with two CRs and no LF, holds a blank line.
std::size_t HeadLength(std::string_view text) {
    constexpr std::string_view kLineEnds = "\r\n";
    std::size_t at = text.find_first_of(kLineEnds, text.find_first_not_of(kLineEnds));
    while (at != text.npos) {
        const std::size_t behind = std::min(text.find_first_not_of(kLineEnds, at), text.size());
        const std::string_view run = text.substr(at, behind - at);
        const char mark = Contains(run, "\n") ? '\n' : '\r';
        const std::size_t second = run.find(mark, run.find(mark) + 1);
        if (second != run.npos && (mark == '\n' || behind < text.size())) return at + second + 1;
        at = text.find_first_of(kLineEnds, behind);
    }
    return text.npos;
}

// Where a reply's parts end: npos while that is unknown.
struct ReplyParts {
    std::size_t head = std::string_view::npos; // behind the blank line
    std::size_t body = std::string_view::npos; // behind what Content-Length announces
};

ReplyParts MeasureReply(std::string_view text) {
    const std::size_t head = HeadLength(text);
    if (head == text.npos) return {};
    return {head, head + BodyLength(text.substr(0, head))};
}

// A '$' begins a frame where a line or a body could begin or has ended, and before a channel number that is no
// text. A body that is whole may have lines that begin with one.
bool FrameBegins(std::string_view text, const ReplyParts &parts, std::size_t dollar) {
    constexpr std::string_view kText = "\t\r\n";
    const bool inWholeBody = parts.body <= text.size() && dollar > parts.head && dollar < parts.body;
    const char before = dollar > 0 ? text[dollar - 1] : '\n';
    const bool beginsLine = (before == '\r' || before == '\n') && !inWholeBody;
    const char channel = dollar + 1 < text.size() ? text[dollar + 1] : '$';
    const bool beforeChannel = static_cast<unsigned char>(channel) < ' ' && !Contains(kText, {&channel, 1});
    return beginsLine || beforeChannel || dollar == parts.head || dollar == parts.body;
}

// One receive is one message: what follows a complete reply is part of it, up to the first frame.
std::size_t LengthBeforeFrame(std::string_view text) {
    const ReplyParts parts = MeasureReply(text);
    for (std::size_t at = text.find('$'); at != text.npos; at = text.find('$', at + 1))
        if (FrameBegins(text, parts, at)) return at;
    return parts.body <= text.size() ? text.size() : text.npos;
}

// How much of the text is the reply; npos while more may come.
std::size_t ReplyLength(std::string_view text, ReplyEnd rule) {
    if (rule == ReplyEnd::kFirstFrame) return LengthBeforeFrame(text);
    const std::size_t dollar = text.find('$');
    if (dollar != text.npos) return dollar;
    return MeasureReply(text).body <= text.size() ? text.size() : text.npos;
}

bool GraceIsOver(InterleavedReader &reader) {
    if (reader.replySinceMs == 0) reader.replySinceMs = MonotonicMs();
    return ReplyGraceLeft(reader) == 0;
}

// Text that was there before the request, up to the first frame.
void DropStaleText(InterleavedReader &reader) {
    const std::string_view text = BufferedText(reader).substr(0, reader.staleBytes);
    Consume(reader, std::min(LengthBeforeFrame(text), text.size()));
    reader.replySinceMs = 0;
    reader.outOfStep = true; // its rest may follow
}

bool HandOver(RTSPClient &client, std::string_view text) {
    RecvBufferPtr reply(CreateRecvBuffer(kReplyBytes));
    if (reply == nullptr) return false;
    memcpy(reply->data, text.data(), text.size());
    reply->length = static_cast<int32_t>(text.size());
    const RecvBufferPtr displaced(client.recvData.exchange(reply.release()));
    const ScopedLock lock(client.replyLock);
    SignalOnConditionVar(&client.replyCondition);
    return true;
}

} // namespace

int ReplyGraceLeft(const InterleavedReader &reader) {
    if (reader.replySinceMs == 0) return -1;
    const uint64_t waited = MonotonicMs() - reader.replySinceMs;
    return waited >= kReplyGraceMs ? 0 : kReplyGraceMs - static_cast<int>(waited);
}

ReplyStatus TakeReply(RTSPClient &client, InterleavedReader &reader, ReplyEnd rule, bool final) {
    if (reader.staleBytes > 0) {
        DropStaleText(reader);
        return ReplyStatus::kTaken;
    }
    const std::string_view text = BufferedText(reader).substr(0, kReplyBytes);
    std::size_t length = ReplyLength(text, rule);
    if (length == text.npos) {
        if (text.size() < kReplyBytes && !final && !GraceIsOver(reader)) return ReplyStatus::kIncomplete;
        length = text.size();
    }
    reader.replySinceMs = 0;
    // Kept: text that fills the whole buffer without a '$' is handed over as an empty reply. Where no frames are
    // expected yet it is taken as far as it came, as by a direct read.
    const bool fillsBuffer = length == kReplyBytes && rule == ReplyEnd::kFirstDollar;
    if (!HandOver(client, text.substr(0, fillsBuffer ? 0 : length))) return ReplyStatus::kNoMemory;
    Consume(reader, length);
    reader.outOfStep = false;
    reader.replyTail = Buffered(reader);
    return ReplyStatus::kTaken;
}

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

constexpr std::string_view kReplyStart = "RTSP";
constexpr std::string_view kReplyVersion = "RTSP/1.0 ";

// ---- Bytes out of step: pure ----

// Where `mark` stands first behind the front of `text`, or where it may be about to: its beginning ends the text.
// npos when neither is before `limit`.
std::size_t FindBehindFront(std::string_view text, std::string_view mark, std::size_t limit) {
    text = text.substr(0, limit + mark.size() - 1); // the search is repeated every few bytes
    std::size_t at = text.find(mark, 1);
    if (at == text.npos) at = std::max<std::size_t>(1, text.size() - std::min(text.size(), mark.size() - 1));
    while (at < text.size() && !mark.starts_with(text.substr(at, mark.size()))) ++at;
    return at < std::min(limit, text.size()) ? at : text.npos;
}

enum class Search { kNone, kFound, kMoreNeeded };
struct ReplySearch {
    Search result = Search::kNone;
    std::size_t at = 0;
};

// A reply that somebody waits for is found wherever it begins among bytes out of step. A full ring, whose frames
// are not consumed, would cost three of four otherwise, and with them PAUSE and TEARDOWN.
ReplySearch SearchReply(std::string_view text, std::string_view mark, std::size_t limit, bool final) {
    const std::size_t at = FindBehindFront(text, mark, limit);
    if (at == text.npos) return {};
    if (text.size() - at >= mark.size()) return {Search::kFound, at};
    return {final ? Search::kNone : Search::kMoreNeeded, at};
}

// ---- Frames to their streams ----

void MakeRoutes(const RTSPClient &client, InterleavedReader &reader) {
    reader.routes.fill({});
    const auto claim = [&reader](uint32_t channel, Route route) {
        if (channel < reader.routes.size() && reader.routes[channel].stream == nullptr)
            reader.routes[channel] = route;
    };
    RTSPStreamInfo *stream = client.streamList.load(std::memory_order_acquire);
    for (; stream != nullptr; stream = stream->next.load(std::memory_order_acquire)) {
        const uint32_t rtpChannel = stream->interleavedChannel;
        claim(rtpChannel, {stream, false});
        claim(rtpChannel + 1, {stream, true});
    }
}

// The first stream in description order that has the channel for RTP or, one above, for RTCP. A description may
// have thousands.
const Route &FindRoute(const RTSPClient &client, InterleavedReader &reader, uint8_t channel) {
    const uint32_t changes = client.channelChanges; // before the look, so that one during it is seen next time
    if (reader.routesMade != changes) MakeRoutes(client, reader);
    reader.routesMade = changes;
    return reader.routes[channel];
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

bool FindFrameRoom(RTSPStreamInfo &stream, uint32_t channel, std::size_t length) {
    const uint32_t mtu = stream.client->mtuSize;
    const auto needed = static_cast<int64_t>(std::max<std::size_t>(length, 1)); // a full ring takes no empty one
    const int64_t writeIndex = stream.ring.writeIndex;
    RingPlace place = PlaceNextPacket(stream.ring, mtu);
    if (place.room < needed && NothingInUse(stream)) {
        EmptyRing(stream.ring);
        place = PlaceNextPacket(stream.ring, mtu);
    }
    const bool fits = place.room >= needed;
    if (!fits && place.verdict != RingRoom::kFullAtEnd) place.verdict = RingRoom::kFullBehind;
    PrintRing(place.verdict, stream.ring, writeIndex, channel);
    return fits;
}

void AcceptFrame(InterleavedReader &reader, RTSPStreamInfo &stream, const Frame &frame) {
    if (!frame.body.empty())
        memcpy(stream.ring.storage + stream.ring.writeIndex, frame.body.data(), frame.body.size());
    const ArrivalRules rules{.reorder = false, .announceDrops = frame.followedReply, .channel = frame.channel};
    AcceptPacket(stream, static_cast<uint32_t>(frame.body.size()), rules,
                 frame.followedReply ? FailureText("%s :Invalid packet received ignoring\n")
                                     : FailureText("%s: Invalid packet received ignoring\n"));
    if (stream.signalDue) return;
    stream.signalDue = true;
    stream.nextSignalDue = std::exchange(reader.signalDue, &stream);
}

void PrintCorrupted() { puts("Error: corrupted stream ($/RTSP not found)"); }

// A header that leads nowhere is dropped alone: the bytes behind it are looked at four by four until a header lines
// up again, or one by one where an awaited reply begins.
Unit DropHeader(const RTSPClient &client, InterleavedReader &reader, std::size_t bodyLength) {
    std::size_t dropped = kFrameHeaderBytes;
    if (client.awaitingReply) {
        const ReplySearch reply = SearchReply(BufferedText(reader), kReplyStart, kFrameHeaderBytes, true);
        if (reply.result == Search::kFound) dropped = reply.at;
    }
    Consume(reader, dropped);
    reader.outOfStep = reader.outOfStep || bodyLength > 0;
    return Unit::kHandled;
}

enum class Fit { kFits, kNowhere, kNoMemory };

// Whether the frame whose header is known can be taken. Prints why not.
Fit FindPlace(const RTSPClient &client, const Route &route, uint32_t channel, std::size_t length) {
    if (length > client.mtuSize) {
        printf("Error: interleaved frame in RTP stream is too large (%u)\n", static_cast<unsigned>(length));
        return Fit::kNowhere;
    }
    if (!TakesFrames(route)) return Fit::kNowhere;
    if (route.isRtcp) return Fit::kFits;
    if (!OpenRing(*route.stream)) return Fit::kNoMemory;
    return FindFrameRoom(*route.stream, channel, length) ? Fit::kFits : Fit::kNowhere;
}

void Deliver(InterleavedReader &reader, const Route &route, const Frame &frame) {
    if (route.isRtcp)
        AnswerRtcp(*route.stream, frame.body);
    else
        AcceptFrame(reader, *route.stream, frame);
}

// Room is looked for before the body is waited for. Out of step the header may be bytes of a body: an awaited reply
// within the frame it announces is no part of it.
Unit TakeFrame(RTSPClient &client, InterleavedReader &reader, bool final) {
    const std::string_view text = BufferedText(reader);
    const uint8_t *const header = reader.bytes + reader.begin;
    const bool searched = client.awaitingReply;
    if (searched && SearchReply(text, kReplyStart, kFrameHeaderBytes, final).result == Search::kMoreNeeded)
        return Unit::kIncomplete;
    if (header[0] != '$') {
        PrintCorrupted();
        return DropHeader(client, reader, kFrameHeaderBytes);
    }
    const std::size_t length = wire::U16(header + 2);
    const std::size_t whole = kFrameHeaderBytes + length;
    const Route route = FindRoute(client, reader, header[1]);
    const Fit fit = FindPlace(client, route, header[1], length);
    if (fit == Fit::kNoMemory) return Unit::kNoMemory;
    if (fit == Fit::kNowhere) return DropHeader(client, reader, length);

    if (searched && reader.outOfStep) {
        const ReplySearch reply = SearchReply(text, kReplyVersion, whole, final);
        if (reply.result == Search::kMoreNeeded) return Unit::kIncomplete;
        if (reply.result == Search::kFound) {
            PrintCorrupted();
            Consume(reader, reply.at);
            return Unit::kHandled;
        }
    }
    if (text.size() < whole) return Unit::kIncomplete;
    Deliver(reader, route, {header[1], {header + kFrameHeaderBytes, length}, whole < reader.replyTail});
    Consume(reader, whole);
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
    if (rule == ReplyEnd::kFirstFrame && !reader.outOfStep) return !text.empty() && !text.starts_with('$');
    return text.starts_with(kReplyStart);
}

// What was received before the exchange under way began cannot answer it.
void NoteExchange(const RTSPClient &client, InterleavedReader &reader) {
    const uint32_t exchange = client.exchangeCount;
    if (std::exchange(reader.exchange, exchange) != exchange)
        reader.staleBytes = Buffered(reader) - reader.freshBytes;
    reader.freshBytes = 0;
}

void SignalDueStreams(InterleavedReader &reader) {
    while (reader.signalDue != nullptr) {
        RTSPStreamInfo &stream = *std::exchange(reader.signalDue, reader.signalDue->nextSignalDue);
        stream.signalDue = false;
        SignalReaders(stream);
    }
}

} // namespace

Unit TakeBufferedUnits(RTSPClient &client, InterleavedReader &reader, ReplyEnd rule, bool final) {
    const bool firstPlay = rule == ReplyEnd::kFirstFrame;
    Unit unit = Unit::kHandled;
    NoteExchange(client, reader);
    while (unit == Unit::kHandled) {
        if (ReplyStandsNext(reader, rule)) {
            unit = TakeReplyUnit(client, reader, rule, final);
            if (firstPlay && client.recvData != nullptr) break;
        } else if (Buffered(reader) >= kFrameHeaderBytes) {
            unit = TakeFrame(client, reader, final);
            // A frame without a ring does not fail the exchange that awaits its reply: the thread will tell.
            if (unit == Unit::kNoMemory && firstPlay) unit = DropHeader(client, reader, kFrameHeaderBytes);
        } else {
            break;
        }
    }
    SignalDueStreams(reader);
    if (unit == Unit::kNoMemory)
        RtpRtspErrorPrint("EXIT : %s : %d Memory Allocation Failed\n", "RTPDataReceiveThread", __LINE__);
    return unit;
}

} // namespace rtsptap
