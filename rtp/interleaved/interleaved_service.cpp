#include "rtp/interleaved/interleaved_service.h"

#include "platform/printers.h"
#include "platform/system.h"
#include "rtp/interleaved/splitter.h"
#include "rtp/media_session.h"
#include "rtp/packet_queue.h"
#include "rtp/rtcp/rtcp.h"
#include "rtp/rtp_packet.h"
#include "rtp/service_thread.h"
#include "rtp/serving.h"
#include "rtp/stream.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <utility>

namespace rtsptap {

// ---- frames to their streams ----

namespace {

struct Frame {
    uint8_t channel = 0;
    std::string_view body;
    bool followedReply = false; // came whole, and more behind it, in one read with a reply
};

void MakeRoutes(const MediaSession &session, ReadAhead &reader) {
    reader.routes.fill({});
    const auto claim = [&reader](uint32_t channel, Route route) {
        if (channel < reader.routes.size() && reader.routes[channel].stream == nullptr)
            reader.routes[channel] = route;
    };
    RTSPStreamInfo *stream = session.streamList.load(std::memory_order_acquire);
    for (; stream != nullptr; stream = stream->next.load(std::memory_order_acquire)) {
        const uint32_t rtpChannel = stream->interleavedChannel;
        claim(rtpChannel, {stream, false});
        claim(rtpChannel + 1, {stream, true});
    }
}

// The first stream in description order that has the channel for RTP or, one above, for RTCP. A description may
// have thousands.
const Route &FindRoute(const MediaSession &session, ReadAhead &reader, uint8_t channel) {
    const uint32_t changes = session.channelChanges; // before the look, so that one during it is seen next time
    if (reader.routesMade != changes) MakeRoutes(session, reader);
    reader.routesMade = changes;
    return reader.routes[channel];
}

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

enum class Fit { kFits, kNowhere, kNoMemory };

Fit FindFrameRoom(RTSPStreamInfo &stream, uint32_t channel, std::size_t length) {
    const auto needed = static_cast<int64_t>(std::max<std::size_t>(length, 1)); // a full ring takes no empty one
    const int64_t writeIndex = stream.ring.writeIndex;
    RingPlace place = FindRoom(stream, needed);
    if (place.verdict == RingRoom::kNoMemory) return Fit::kNoMemory;
    const bool fits = place.room >= needed;
    if (!fits && place.verdict != RingRoom::kFullAtEnd) place.verdict = RingRoom::kFullBehind;
    PrintRing(place.verdict, stream.ring, writeIndex, channel);
    return fits ? Fit::kFits : Fit::kNowhere;
}

// Whether the frame whose header is known can be taken. Prints why not.
Fit FindPlace(const MediaSession &session, const Route &route, const Unit &frame) {
    if (frame.bodyLength > session.mtuSize) {
        printf("Error: interleaved frame in RTP stream is too large (%u)\n",
               static_cast<unsigned>(frame.bodyLength));
        return Fit::kNowhere;
    }
    if (!TakesFrames(route)) return Fit::kNowhere;
    return route.isRtcp ? Fit::kFits : FindFrameRoom(*route.stream, frame.channel, frame.bodyLength);
}

// The stream with the largest ring, as far as frames come for it: there most of the bytes go.
void ChooseLender(ReadAhead &reader, RTSPStreamInfo &stream) {
    if (reader.lender == &stream) return;
    const bool isIdle = reader.lender == nullptr || !reader.lender->receiving;
    if (isIdle || reader.lender->ring.size < stream.ring.size) reader.lender = &stream;
}

// What its ring has free, where the next packet goes or would, if it is enough: else the reader has memory of its
// own.
void BorrowRoom(ReadAhead &reader) {
    const bool lends = reader.lender != nullptr && reader.lender->takesFrames && reader.lender->receiving;
    const std::span<uint8_t> room = lends ? FreeRoom(reader.lender->ring) : std::span<uint8_t>();
    if (room.size() < Buffered(reader) + kSmallestLoan) return ReturnRoom(reader);
    LendRoom(reader, room);
}

void AcceptFrame(ReadAhead &reader, RTSPStreamInfo &stream, const Frame &frame) {
    uint8_t *const place = stream.ring.storage + stream.ring.writeIndex;
    if (!frame.body.empty()) memmove(place, frame.body.data(), frame.body.size()); // which may lie in the ring, too
    const ArrivalRules rules{.reorder = false, .announceDrops = frame.followedReply, .channel = frame.channel};
    AcceptPacket(stream, static_cast<uint32_t>(frame.body.size()), rules,
                 frame.followedReply ? FailureText("%s :Invalid packet received ignoring\n")
                                     : FailureText("%s: Invalid packet received ignoring\n"));
    ChooseLender(reader, stream);
    if (stream.signalDue) return;
    stream.signalDue = true;
    stream.nextSignalDue = std::exchange(reader.signalDue, &stream);
}

void Deliver(ReadAhead &reader, const Route &route, std::string_view text, const Unit &unit) {
    const std::string_view body = text.substr(kFrameHeaderBytes, unit.bodyLength);
    if (route.isRtcp)
        AnswerInterleavedRtcp(*route.stream, {reinterpret_cast<const uint8_t *>(body.data()), body.size()});
    else
        AcceptFrame(reader, *route.stream, {unit.channel, body, unit.length < reader.replyTail});
}

void SignalDueStreams(ReadAhead &reader) {
    while (reader.signalDue != nullptr) {
        RTSPStreamInfo &stream = *std::exchange(reader.signalDue, reader.signalDue->nextSignalDue);
        stream.signalDue = false;
        SignalReaders(stream);
    }
}

} // namespace

// ---- units ----

namespace {

// What became of a unit. Whoever dispatches consumes its bytes.
struct Dispatch {
    enum { kHandled, kIncomplete, kNoMemory } result = kIncomplete;
    std::size_t consumed = 0;
};

Dispatch Handled(std::size_t consumed) { return {Dispatch::kHandled, consumed}; }

void PrintCorrupted() { puts("Error: corrupted stream ($/RTSP not found)"); }

Dispatch DropHeader(ReadAhead &reader, std::size_t length, std::size_t bodyLength) {
    reader.outOfStep = reader.outOfStep || bodyLength > 0;
    return Handled(length);
}

// A frame of a channel that no stream has is skipped as a whole. Out of step its header may be none.
Dispatch SkipFrame(const Dialect &dialect, const UnsplitBytes &bytes, const Unit &unit) {
    if (bytes.text.size() < unit.length) return {};
    dialect.Permits(Rule::kUnknownChannel);
    return Handled(unit.length);
}

// Room is looked for before the body is waited for. A frame without a ring does not fail the exchange that awaits
// the reply to the first PLAY: the thread will tell.
Dispatch TakeFrame(MediaSession &session, ReadAhead &reader, const UnsplitBytes &bytes, const Unit &unit) {
    const Route route = FindRoute(session, reader, unit.channel);
    if (route.stream == nullptr && !bytes.outOfStep && session.dialect.IsOn(Rule::kUnknownChannel))
        return SkipFrame(session.dialect, bytes, unit);
    const Fit fit = FindPlace(session, route, unit);
    if (fit == Fit::kNoMemory && bytes.rule != ReplyEnd::kFirstFrame) return {Dispatch::kNoMemory};
    const FrameFate fate = LookIntoFrame(bytes, unit, fit == Fit::kFits);
    switch (fate.kind) {
    case FrameFate::Kind::kLeadsNowhere:
        return DropHeader(reader, fate.length, fit == Fit::kNoMemory ? kFrameHeaderBytes : unit.bodyLength);
    case FrameFate::Kind::kPartial:
        return {};
    case FrameFate::Kind::kHidesReply:
        PrintCorrupted();
        break;
    case FrameFate::Kind::kWhole:
        Deliver(reader, route, bytes.text, unit);
        break;
    }
    return Handled(fate.length);
}

// Whether rules drop a reply that is not the one awaited.
bool IsPassedOver(const MediaSession &session, std::string_view reply) {
    switch (JudgeReply(reply, session.connection.lateFrom, session.connection.awaitedCSeq)) {
    case ReplyFate::kIsLate:
        return session.dialect.Permits(Rule::kLateReply);
    case ReplyFate::kIsProvisional:
        return session.dialect.Permits(Rule::kProvisionalReply);
    case ReplyFate::kAnswers:
        break;
    }
    return false;
}

// Counts what the reply was read by that is as long as it says.
void CountFraming(const Dialect &dialect, const UnsplitBytes &bytes, const Unit &unit, bool cameInPieces) {
    if (!bytes.isFramed) return;
    const std::string_view behind = bytes.text.substr(unit.length);
    if (cameInPieces || !(behind.empty() || behind.starts_with('$'))) dialect.Permits(Rule::kFramedReplies);
    if (unit.lengthIsWrong) dialect.Permits(Rule::kAnyBodyLength);
}

// Kept: text that fills the whole buffer without a '$' is handed over as an empty reply. Where no frames are
// expected yet it is taken as far as it came, as by a direct read.
Dispatch TakeReply(MediaSession &session, ReadAhead &reader, const UnsplitBytes &bytes, const Unit &unit) {
    const bool isLost = unit.fillsBuffer && bytes.rule == ReplyEnd::kFirstDollar && !bytes.isFramed;
    CountFraming(session.dialect, bytes, unit, reader.replySinceMs != 0);
    reader.replySinceMs = 0;
    const bool isPassedOver = IsPassedOver(session, bytes.text.substr(0, unit.length));
    if (!isPassedOver && !PostReply(session.connection, bytes.text.substr(0, isLost ? 0 : unit.length)))
        return {Dispatch::kNoMemory};
    reader.outOfStep = false;
    reader.replyTail = bytes.text.size(); // less what is consumed
    return Handled(unit.length);
}

Dispatch DropStaleText(ReadAhead &reader, const Unit &unit) {
    reader.replySinceMs = 0;
    reader.outOfStep = true; // its rest may follow
    return Handled(unit.length);
}

// The rest of a reply in pieces is waited for, from the first look on; that of one which says how long it is, and
// has the connection for itself, from the last piece on.
Dispatch AwaitMore(ReadAhead &reader, const UnsplitBytes &bytes, const Unit &unit) {
    if (!unit.replyBegun) return {};
    const bool hasGrown =
        bytes.isFramed && bytes.rule == ReplyEnd::kFirstFrame && Buffered(reader) > reader.replyBytes;
    if (reader.replySinceMs == 0 || hasGrown) reader.replySinceMs = MonotonicMs();
    reader.replyBytes = Buffered(reader);
    return {};
}

Dispatch TakeUnit(MediaSession &session, ReadAhead &reader, const UnsplitBytes &bytes) {
    const Unit unit = NextUnit(bytes);
    switch (unit.kind) {
    case Unit::Kind::kFrame:
        return TakeFrame(session, reader, bytes, unit);
    case Unit::Kind::kReply:
        return TakeReply(session, reader, bytes, unit);
    case Unit::Kind::kStaleText:
        return DropStaleText(reader, unit);
    case Unit::Kind::kJunk:
        PrintCorrupted();
        return DropHeader(reader, unit.length, kFrameHeaderBytes);
    case Unit::Kind::kMoreNeeded:
        break;
    }
    return AwaitMore(reader, bytes, unit);
}

// What was received before the exchange under way began cannot answer it.
void NoteExchange(const Connection &connection, ReadAhead &reader) {
    const uint32_t exchange = connection.exchangeCount;
    if (std::exchange(reader.exchange, exchange) != exchange)
        reader.staleBytes = Buffered(reader) - reader.freshBytes;
    reader.freshBytes = 0;
}

UnsplitBytes NotYetTaken(const MediaSession &session, const ReadAhead &reader, ReplyEnd rule, bool isFinal,
                         bool graceIsOver) {
    return {.text = BufferedText(reader),
            .staleBytes = reader.staleBytes,
            .rule = rule,
            .awaitsReply = session.connection.awaitingReply,
            .outOfStep = reader.outOfStep,
            .isFinal = isFinal,
            .replyIsFinal = isFinal || (graceIsOver && reader.replySinceMs != 0),
            .isFramed = session.dialect.IsOn(Rule::kFramedReplies),
            .anyBodyLength = session.dialect.IsOn(Rule::kAnyBodyLength)};
}

// Handles what lies complete in the reader, up to a first failure of memory, which it tells; false then. Readers
// are signalled once for all of it. With `isFinal` nothing more comes.
bool TakeUnits(MediaSession &session, ReadAhead &reader, ReplyEnd rule, bool isFinal, bool graceIsOver) {
    const Connection &connection = session.connection;
    NoteExchange(connection, reader);
    Dispatch dispatch = Handled(0);
    while (dispatch.result == Dispatch::kHandled &&
           !(rule == ReplyEnd::kFirstFrame && connection.recvData != nullptr)) {
        dispatch = TakeUnit(session, reader, NotYetTaken(session, reader, rule, isFinal, graceIsOver));
        Consume(reader, dispatch.consumed);
    }
    SignalDueStreams(reader);
    if (dispatch.result != Dispatch::kNoMemory) return true;
    RtpRtspErrorPrint("EXIT : %s : %d Memory Allocation Failed\n", kInterleavedService.threadName, __LINE__);
    return false;
}

} // namespace

// ---- the service ----

namespace {

constexpr int kLookMs = 200; // a reply in pieces is given up by the clock

// A description may have thousands of streams: every one that is to take frames gets the size of its ring, and the
// storage when the first frame comes. A stream described later takes none.
void SizeRings(const MediaSession &session) {
    RTSPStreamInfo *stream = session.streamList.load(std::memory_order_acquire);
    for (; stream != nullptr; stream = stream->next.load(std::memory_order_acquire)) {
        if (!stream->takesFrames) continue;
        SizeRing(*stream);
        stream->receiving = true;
        stream->localSsrc = ChooseSsrc(*stream);
    }
}

// A successor goes on where the thread stops: readers then wait on.
void CloseRings(const MediaSession &session, bool handOver) {
    RTSPStreamInfo *stream = session.streamList.load(std::memory_order_acquire);
    for (; stream != nullptr; stream = stream->next.load(std::memory_order_acquire)) {
        if (!stream->receiving.exchange(false)) continue;
        if (!handOver) EndReaderWaits(*stream);
    }
}

bool IsActive(RTSPStreamInfo &first) {
    if (first.session->connection.awaitingReply) return true;
    const RTSPStreamInfo *stream = first.session->streamList.load(std::memory_order_acquire);
    while (stream != nullptr && stream->streamState != kStreamPlaying)
        stream = stream->next.load(std::memory_order_acquire);
    return stream != nullptr;
}

bool Open(StreamThread &thread) {
    MediaSession &session = *thread.stream->session;
    const ScopedTurn turn(session.connection.turn, ScopedTurn::kWait);
    thread.stream->baseSeqNum = -1;
    SizeRings(session);
    OpenTurn(session.connection.turn, thread);
    return true;
}

// In a turn: waits up to `timeoutMs` for more and handles what is there. Ends, with all turns, when the connection
// is closed or memory short.
Served ServeConnection(MediaSession &session, int timeoutMs) {
    ReceiveTurn &turn = session.connection.turn;
    ReadAhead *const reader = OpenReader(session.connection);
    turn.ended = turn.ended || reader == nullptr || reader->socket < 0;
    if (turn.ended) return Served::kEnded;
    const int graceLeft = ReplyGraceLeft(*reader);
    BorrowRoom(*reader);
    const Fill fill = FillReader(*reader, graceLeft < 0 ? timeoutMs : std::min(timeoutMs, graceLeft));
    if (fill == Fill::kClosed) DebugPrint(kDebugEntry, "Stopping Thread \n");
    const bool graceIsOver = ReplyGraceLeft(*reader) == 0;
    const bool goesOn = TakeUnits(session, *reader, ReplyEnd::kFirstDollar, fill == Fill::kClosed, graceIsOver);
    turn.ended = fill == Fill::kClosed || !goesOn;
    return turn.ended ? Served::kEnded : Served::kNothingLeft;
}

Served Serve(StreamThread &thread, const Readiness & /*readiness*/) {
    return ServeConnection(*thread.stream->session, 0);
}

int Socket(const RTSPStreamInfo &stream) { return stream.session->connection.socket; }

int WaitMs(RTSPStreamInfo & /*stream*/) { return kLookMs; }

ReceiveTurn *Turn(RTSPStreamInfo &stream) { return &stream.session->connection.turn; }

// A paused connection is read exactly as long as a reply is due, and by the thread.
bool AdmitsReaders(const RTSPStreamInfo &stream) {
    return stream.receiving && stream.streamState == kStreamPlaying;
}

Served ServeWaiting(RTSPStreamInfo &stream) { return ServeConnection(*stream.session, kTurnSliceMs); }

void Close(StreamThread &thread) {
    MediaSession &session = *thread.stream->session;
    const ScopedTurn turn(session.connection.turn, ScopedTurn::kWait);
    CloseTurn(session.connection.turn);
    if (session.connection.readAhead != nullptr) ReturnRoom(*session.connection.readAhead);
    CloseRings(session, thread.yield);
}

} // namespace

constinit const Service kInterleavedService{
    .threadName = "RTPDataReceiveThread",
    .open = Open,
    .isActive = IsActive,
    .serve = Serve,
    .socket = Socket,
    .waitMs = WaitMs,
    .close = Close,
    .turn = Turn,
    .admitsReaders = AdmitsReaders,
    .serveWaiting = ServeWaiting, // it tells readers itself: whom is known in the turn only
};

// ---- the reply to the first PLAY ----

namespace {

enum class WaitEnd { kReadable, kNothing, kDeadline, kFailed };

// Waits for the reply as every exchange does, or for the rest of one. A signal fails the wait, but not that for a
// rest.
WaitEnd WaitForReply(const ReadAhead &reader, uint64_t deadlineMs) {
    const uint64_t now = MonotonicMs();
    if (now >= deadlineMs) return WaitEnd::kDeadline;
    const int grace = ReplyGraceLeft(reader);
    pollfd arrival = {reader.socket, POLLIN, 0};
    const int ready = poll(&arrival, 1, grace >= 0 ? grace : static_cast<int>(deadlineMs - now));
    if (ready < 0 && grace < 0) return WaitEnd::kFailed;
    return ready > 0 ? WaitEnd::kReadable : WaitEnd::kNothing;
}

} // namespace

RecvBufferPtr ReceiveReplyAmongFrames(MediaSession &session, int32_t &failure, bool takesFrames) {
    const CallTrace trace("ClientReadMessage");
    failure = RTSP_NO_RESPONSE;
    ReadAhead *const reader = OpenReader(session.connection);
    if (reader == nullptr) return nullptr;
    if (takesFrames) SizeRings(session);
    const uint64_t deadline = MonotonicMs() + static_cast<uint64_t>(session.connection.replyLimitMs);
    for (bool closed = false;;) {
        const bool graceIsOver = ReplyGraceLeft(*reader) == 0;
        const bool goesOn = TakeUnits(session, *reader, ReplyEnd::kFirstFrame, closed, graceIsOver);
        if (session.connection.recvData != nullptr || !goesOn || closed) break;
        const WaitEnd wait = WaitForReply(*reader, deadline);
        if (wait == WaitEnd::kFailed) {
            trace.Fail(failure, "\tEXIT : %s :Socket select call failed\n");
            break;
        }
        if (wait == WaitEnd::kDeadline) {
            failure = trace.Fail(RTSP_RESPONSE_TIMEOUT, "\tEXIT : %s :No data received and timeout the session\n");
            break;
        }
        closed = wait == WaitEnd::kReadable && FillReader(*reader, 0) == Fill::kClosed;
    }
    return TakePostedReply(session.connection);
}

} // namespace rtsptap
