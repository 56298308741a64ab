#include "rtp/interleaved/units.h"

#include "platform/printers.h"
#include "platform/system.h"
#include "rtp/interleaved/frames.h"
#include "rtp/interleaved/server_requests.h"
#include "rtp/interleaved/tending.h"
#include "rtp/media_session.h"
#include "rtp/packet_queue.h"
#include "rtp/rtcp/rtcp.h"
#include "rtp/rtp_packet.h"
#include "rtp/serving.h"
#include "rtp/stream.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace rtsptap {

namespace {

// What became of a unit. Whoever dispatches consumes its bytes.
struct Dispatch {
    enum { kHandled, kIncomplete, kNoMemory } result = kIncomplete;
    std::size_t consumed = 0;
};

Dispatch Handled(std::size_t consumed) { return {Dispatch::kHandled, consumed}; }

void PrintCorrupted() { PrintEvent("Error: corrupted stream ($/RTSP not found)\n"); }

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

// What nobody takes is dropped by its length: what stands behind it is in step.
Dispatch PassOver(ReadAhead &reader, std::size_t length) {
    reader.outOfStep = false;
    reader.replySinceMs = 0;
    Skip(reader, length);
    return Handled(0);
}

// A frame without a ring does not fail the exchange that awaits the reply to the first PLAY: the thread will tell.
Dispatch TakeUnplaced(const MediaSession &session, ReadAhead &reader, const UnsplitBytes &bytes, const Unit &unit,
                      Fit fit) {
    const bool isOfSize = fit == Fit::kNowhere && unit.bodyLength <= session.mtuSize;
    if (isOfSize && bytes.confirmedChannels != nullptr) return PassOver(reader, unit.length);
    if (fit == Fit::kNoMemory && bytes.rule != ReplyEnd::kFirstFrame) return {Dispatch::kNoMemory};
    const std::size_t doubtful = fit == Fit::kNoMemory ? kFrameHeaderBytes : unit.bodyLength;
    return DropHeader(reader, LookIntoFrame(bytes, unit, false).length, doubtful);
}

// Room is looked for before the body is waited for.
Dispatch TakeFrame(MediaSession &session, ReadAhead &reader, const UnsplitBytes &bytes, const Unit &unit) {
    Route route = FindRoute(session, reader, unit.channel);
    if (route.stream == nullptr && !bytes.outOfStep && TakesUnsaidChannel(session, unit, bytes.text))
        route = FindRoute(session, reader, unit.channel);
    if (route.stream == nullptr && !bytes.outOfStep && session.dialect.IsOn(Rule::kUnknownChannel))
        return SkipFrame(session.dialect, bytes, unit);
    const Fit fit = FindPlace(session, route, unit);
    if (fit != Fit::kFits) return TakeUnplaced(session, reader, bytes, unit, fit);
    const FrameFate fate = LookIntoFrame(bytes, unit, true);
    switch (fate.kind) {
    case FrameFate::Kind::kPartial:
        return {};
    case FrameFate::Kind::kHidesReply:
        PrintCorrupted();
        break;
    case FrameFate::Kind::kWhole:
        Deliver(reader, route, bytes.text, unit);
        if (bytes.outOfStep && bytes.confirmedChannels != nullptr) reader.outOfStep = false;
        break;
    case FrameFate::Kind::kLeadsNowhere:
        break;
    }
    return Handled(fate.length);
}

// Whether a reply is dropped that is not the one awaited.
bool IsPassedOver(MediaSession &session, std::string_view reply) {
    switch (JudgeReply(session.connection, reply)) {
    case ReplyFate::kIsLate:
        return session.dialect.Permits(Rule::kLateReply);
    case ReplyFate::kIsProvisional:
        return session.dialect.Permits(Rule::kProvisionalReply);
    case ReplyFate::kIsOfKeepAlive:
        if (session.connection.tending.takeReply != nullptr) session.connection.tending.takeReply(session, reply);
        return true;
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
    const std::string_view text = bytes.text.substr(0, unit.length);
    const bool isPassedOver = IsPassedOver(session, text);
    if (!isPassedOver && !PostReply(session.connection, text.substr(0, isLost ? 0 : text.size())))
        return {Dispatch::kNoMemory};
    reader.outOfStep = false;
    reader.replyTail = bytes.text.size(); // less what is consumed
    // One receive is one message: the one that is awaited may have come with it.
    if (isPassedOver && !bytes.isFramed) return Handled(MessageLength(text));
    Skip(reader, unit.length + unit.bodyLength);
    return Handled(0);
}

// Its body is skipped.
Dispatch TakeRequest(MediaSession &session, ReadAhead &reader, const UnsplitBytes &bytes, const Unit &unit) {
    session.dialect.Permits(Rule::kServerRequest);
    AnswerRequest(session.connection, bytes.text.substr(0, unit.length));
    return PassOver(reader, unit.length + unit.bodyLength);
}

// Told, and counted, once for all that is dropped up to the next unit.
Dispatch DropJunk(const Dialect &dialect, ReadAhead &reader, const UnsplitBytes &bytes, const Unit &unit) {
    const bool isFirst = !reader.outOfStep || bytes.confirmedChannels == nullptr;
    reader.replySinceMs = 0;
    if (isFirst) PrintCorrupted();
    if (isFirst && bytes.confirmedChannels != nullptr) dialect.Permits(Rule::kJunk);
    return DropHeader(reader, unit.length, kFrameHeaderBytes);
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
    case Unit::Kind::kRequest:
        return TakeRequest(session, reader, bytes, unit);
    case Unit::Kind::kBlanks:
        return PassOver(reader, unit.length);
    case Unit::Kind::kJunk:
        return DropJunk(session.dialect, reader, bytes, unit);
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

// How the bytes are read: the same for all that lies there.
UnsplitBytes WayOfReading(const MediaSession &session, ReadAhead &reader, ReplyEnd rule, bool isFinal) {
    UnsplitBytes bytes;
    bytes.rule = rule;
    bytes.isFinal = isFinal;
    // Replies that nobody awaits come together with one that is awaited.
    // One that comes through a byte stream has no segments that could tell where it ends.
    bytes.isFramed = session.dialect.IsOn(Rule::kFramedReplies) || IsKeptAlive(session) || reader.stream != nullptr;
    bytes.anyBodyLength = session.dialect.IsOn(Rule::kAnyBodyLength);
    bytes.hasRequests = session.dialect.IsOn(Rule::kServerRequest);
    bytes.hasAnyCase = session.dialect.IsOn(Rule::kProtocolInAnyCase);
    if (!session.dialect.IsOn(Rule::kJunk)) return bytes;
    RefreshRoutes(session, reader);
    bytes.confirmedChannels = &reader.channels;
    bytes.longestBody = session.mtuSize;
    return bytes;
}

void LookAgain(UnsplitBytes &bytes, const Connection &connection, const ReadAhead &reader, bool graceIsOver) {
    bytes.text = BufferedText(reader);
    bytes.staleBytes = reader.staleBytes;
    bytes.awaitsReply = connection.awaitingReply;
    bytes.outOfStep = reader.outOfStep;
    bytes.replyIsFinal = bytes.isFinal || (graceIsOver && reader.replySinceMs != 0);
}

} // namespace

bool TakeUnits(MediaSession &session, ReadAhead &reader, ReplyEnd rule, bool isFinal, bool graceIsOver) {
    const Connection &connection = session.connection;
    NoteExchange(connection, reader);
    if (reader.skipLeft > 0) GoOnSkipping(reader);
    UnsplitBytes bytes = WayOfReading(session, reader, rule, isFinal);
    Dispatch dispatch = Handled(0);
    while (dispatch.result == Dispatch::kHandled &&
           !(rule == ReplyEnd::kFirstFrame && connection.recvData != nullptr)) {
        LookAgain(bytes, connection, reader, graceIsOver);
        dispatch = TakeUnit(session, reader, bytes);
        Consume(reader, dispatch.consumed);
    }
    SignalDueStreams(reader);
    if (dispatch.result != Dispatch::kNoMemory) return true;
    RtpRtspErrorPrint("EXIT : %s : %d Memory Allocation Failed\n", kInterleavedService.threadName, __LINE__);
    return false;
}

} // namespace rtsptap
