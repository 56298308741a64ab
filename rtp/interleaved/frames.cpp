#include "rtp/interleaved/frames.h"

#include "platform/printers.h"
#include "rtp/packet_queue.h"
#include "rtp/rtcp/rtcp.h"
#include "rtp/rtp_packet.h"
#include "rtp/stream.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace rtsptap {
namespace {

struct Frame {
    uint8_t channel = 0;
    std::string_view body;
    bool followedReply = false; // came whole, and more behind it, in one read with a reply
};

bool TakesFrames(const Route &route) {
    if (route.stream == nullptr || !route.stream->takesFrames) return false;
    return route.isRtcp || route.stream->receiving;
}

// Tells why a frame finds no room, or that the ring went back to its start.
void PrintRing(RingRoom verdict, const ReceiveRing &ring, int64_t writeIndex, uint32_t channel) {
    const auto reader = static_cast<uint32_t>(ring.readIndex.load(std::memory_order_relaxed));
    const auto writer = static_cast<uint32_t>(writeIndex);
    switch (verdict) {
    case RingRoom::kReady:
    case RingRoom::kNoMemory:
        break;
    case RingRoom::kWrapped:
        PrintEvent("TCP read buffer reset wr (2) rd:%u  wr:%u stream:%u\n", reader, writer, channel);
        break;
    case RingRoom::kFullBehind:
        PrintEvent("TCP read buffer full (1) rd:%u  wr:%u stream:%u\n", reader, writer, channel);
        break;
    case RingRoom::kFullAtEnd:
        PrintEvent("Data full reset to 0 location, %u, %u, %u   stream:%u\n", static_cast<uint32_t>(ring.bufferEnd),
                   writer, reader, channel);
        break;
    }
}

Fit FindFrameRoom(RTSPStreamInfo &stream, uint32_t channel, std::size_t length) {
    const auto needed = static_cast<int64_t>(std::max<std::size_t>(length, 1)); // a full ring takes no empty one
    const int64_t writeIndex = stream.ring.writeIndex;
    RingPlace place = FindRoom(stream, needed);
    if (place.verdict == RingRoom::kNoMemory) return Fit::kNoMemory;
    const bool fits = place.room >= needed;
    if (!fits && place.verdict != RingRoom::kFullAtEnd) place.verdict = RingRoom::kFullBehind;
    PrintRing(place.verdict, stream.ring, writeIndex, channel);
    if (!fits) CountOne(stream.drops.ring);
    return fits ? Fit::kFits : Fit::kNowhere;
}

// The stream with the largest ring, as far as frames come for it: there most of the bytes go.
void ChooseLender(ReadAhead &reader, RTSPStreamInfo &stream) {
    if (reader.lender == &stream) return;
    const bool isIdle = reader.lender == nullptr || !reader.lender->receiving;
    if (isIdle || reader.lender->ring.size < stream.ring.size) reader.lender = &stream;
}

// One that was read into the room where the packet goes, a little further on: the headers before it can be left as
// a gap. Not while the writer follows the reader through the ring, where the room is as long as the offsets say.
bool IsInPlace(const ReceiveRing &ring, std::size_t gap, std::size_t length) {
    return gap <= length / kGapsPerPacket && ring.gaps + static_cast<int64_t>(gap) <= MostGaps(ring.size) &&
           ring.readIndex.load(std::memory_order_acquire) <= ring.writeIndex;
}

void PlaceBody(ReceiveRing &ring, std::string_view body) {
    if (body.empty()) return;
    uint8_t *const place = PlaceOf(ring);
    const auto gap = reinterpret_cast<uintptr_t>(body.data()) - reinterpret_cast<uintptr_t>(place);
    if (IsInPlace(ring, gap, body.size()))
        ring.gaps += static_cast<int64_t>(gap);
    else
        memmove(place, body.data(), body.size()); // which may lie in the ring, too
}

void AcceptFrame(ReadAhead &reader, RTSPStreamInfo &stream, const Frame &frame) {
    PlaceBody(stream.ring, frame.body);
    const ArrivalRules rules{.reorder = false, .announceDrops = frame.followedReply, .channel = frame.channel};
    AcceptPacket(stream, static_cast<uint32_t>(frame.body.size()), rules,
                 frame.followedReply ? FailureText("%s :Invalid packet received ignoring\n")
                                     : FailureText("%s: Invalid packet received ignoring\n"));
    ChooseLender(reader, stream);
    if (stream.signalDue) return;
    stream.signalDue = true;
    stream.nextSignalDue = std::exchange(reader.signalDue, &stream);
}

} // namespace

void MakeRoutes(const MediaSession &session, ReadAhead &reader) {
    reader.routes.fill({});
    reader.channels.reset();
    const auto claim = [&reader](uint32_t channel, Route route) {
        if (channel >= reader.routes.size() || reader.routes[channel].stream != nullptr) return;
        reader.routes[channel] = route;
        reader.channels.set(channel);
    };
    RTSPStreamInfo *stream = session.streamList.load(std::memory_order_acquire);
    for (; stream != nullptr; stream = stream->next.load(std::memory_order_acquire)) {
        const uint32_t rtpChannel = stream->interleavedChannel;
        claim(rtpChannel, {stream, false});
        claim(rtpChannel + 1, {stream, true});
    }
}

Fit FindPlace(const MediaSession &session, const Route &route, const Unit &frame) {
    if (frame.bodyLength > session.mtuSize) {
        PrintEvent("Error: interleaved frame in RTP stream is too large (%u)\n",
                   static_cast<unsigned>(frame.bodyLength));
        return Fit::kNowhere;
    }
    if (!TakesFrames(route)) return Fit::kNowhere;
    return route.isRtcp ? Fit::kFits : FindFrameRoom(*route.stream, frame.channel, frame.bodyLength);
}

void Deliver(ReadAhead &reader, const Route &route, std::string_view text, const Unit &unit) {
    const std::string_view body = text.substr(kFrameHeaderBytes, unit.bodyLength);
    if (route.isRtcp)
        AnswerInterleavedRtcp(*route.stream, {reinterpret_cast<const uint8_t *>(body.data()), body.size()});
    else
        AcceptFrame(reader, *route.stream, {unit.channel, body, unit.length < reader.replyTail});
}

namespace {

// The one stream whose channel is still to be known and whose packets are of that type.
RTSPStreamInfo *FindUnheard(const MediaSession &session, int32_t payloadType) {
    RTSPStreamInfo *found = nullptr;
    RTSPStreamInfo *stream = session.streamList.load(std::memory_order_acquire);
    for (; stream != nullptr; stream = stream->next.load(std::memory_order_acquire)) {
        const bool isUnheard = stream->channelIsUnsaid && stream->baseSeqNum.load(std::memory_order_relaxed) < 0;
        if (!isUnheard || stream->description.payloadNumber != payloadType) continue;
        if (found != nullptr) return nullptr;
        found = stream;
    }
    return found;
}

} // namespace

bool TakesUnsaidChannel(const MediaSession &session, const Unit &frame, std::string_view text) {
    constexpr std::size_t kRtpHeader = 12;
    if (session.dataProto != DATA_PROTO_TCP || !session.dialect.IsOn(Rule::kUnsaidChannel)) return false;
    if (frame.channel % 2 != 0 || frame.bodyLength < kRtpHeader || text.size() < frame.length) return false;
    const auto version = static_cast<uint8_t>(text[kFrameHeaderBytes]) >> 6;
    RTSPStreamInfo *const stream = FindUnheard(session, text[kFrameHeaderBytes + 1] & 0x7F);
    if (version != 2 || stream == nullptr || !session.dialect.Permits(Rule::kUnsaidChannel)) return false;
    stream->channelIsUnsaid = false;
    SetChannel(*stream, frame.channel);
    return true;
}

void SignalDueStreams(ReadAhead &reader) {
    while (reader.signalDue != nullptr) {
        RTSPStreamInfo &stream = *std::exchange(reader.signalDue, reader.signalDue->nextSignalDue);
        stream.signalDue = false;
        SignalReaders(stream);
    }
}

void BorrowRoom(ReadAhead &reader) {
    const bool lends = reader.lender != nullptr && reader.lender->takesFrames && reader.lender->receiving;
    const std::span<uint8_t> room = lends ? FreeRoom(reader.lender->ring) : std::span<uint8_t>();
    if (room.size() < Buffered(reader) + kSmallestLoan) return ReturnRoom(reader);
    LendRoom(reader, room);
}

} // namespace rtsptap
