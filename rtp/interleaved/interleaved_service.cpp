#include "rtp/interleaved/interleaved_service.h"

#include "platform/printers.h"
#include "platform/system.h"
#include "platform/waiting.h"
#include "rtp/interleaved/frames.h"
#include "rtp/interleaved/tending.h"
#include "rtp/interleaved/units.h"
#include "rtp/loop/passes.h"
#include "rtp/media_session.h"
#include "rtp/packet_queue.h"
#include "rtp/rtcp/goodbye.h"
#include "rtp/rtcp/rtcp.h"
#include "rtp/service_thread.h"
#include "rtp/serving.h"
#include "rtp/stream.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace rtsptap {

// ---- the service ----

namespace {

constexpr int kLookMs = 200; // a reply in pieces is given up by the clock
constexpr int kWriteMs = 20;

// A description may have thousands of streams: every one that is to take frames gets the size of its ring, and the
// storage when the first frame comes. A stream described later takes none.
void SizeRings(const MediaSession &session) {
    RTSPStreamInfo *stream = session.streamList.load(std::memory_order_acquire);
    for (; stream != nullptr; stream = stream->next.load(std::memory_order_acquire)) {
        if (!stream->takesFrames) continue;
        SizeRing(*stream);
        stream->receiving = true;
        if (session.trueReports == 0 || stream->localSsrc == 0) stream->localSsrc = ChooseSsrc(*stream);
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
    if (first.session->connection.awaitingReply || IsTended(*first.session)) return true;
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

Served End(ReceiveTurn &turn) {
    turn.ended.store(true, std::memory_order_release);
    return Served::kEnded;
}

// In a turn: waits up to `timeoutMs` for more and handles what is there. Ends, with all turns, when the connection
// is closed or memory short.
Served ServeConnection(MediaSession &session, int timeoutMs) {
    ReceiveTurn &turn = session.connection.turn;
    ReadAhead *const reader = OpenReader(session.connection);
    if (turn.ended || reader == nullptr || reader->socket < 0) return End(turn);
    const int graceLeft = ReplyGraceLeft(*reader);
    BorrowRoom(*reader);
    const Fill fill = FillReader(*reader, graceLeft < 0 ? timeoutMs : std::min(timeoutMs, graceLeft));
    if (fill == Fill::kClosed) DebugPrint(kDebugEntry, "Stopping Thread \n");
    const bool graceIsOver = ReplyGraceLeft(*reader) == 0;
    const bool goesOn = TakeUnits(session, *reader, ReplyEnd::kFirstDollar, fill == Fill::kClosed, graceIsOver);
    JudgeGoodbyes(session);
    // One that another has taken the place of meanwhile is nobody's any more: that one is served next.
    const bool isClosed = fill == Fill::kClosed && reader->socket == session.connection.socket;
    if (goesOn && !isClosed) return HasPending(reader->stream) ? Served::kMaybeMore : Served::kNothingLeft;
    const Served ended = End(turn);
    if (isClosed) NoteClosed(session, reader->socket);
    return ended;
}

Served Serve(StreamThread &thread, const Readiness & /*readiness*/) {
    return ServeConnection(*thread.stream->session, 0);
}

int Socket(const RTSPStreamInfo &stream) { return stream.session->connection.socket; }

// What a byte stream has still to write is not what the socket is waited for.
int WaitMs(RTSPStreamInfo &stream) {
    return WantsToWrite(StreamOf(stream.session->connection)) ? kWriteMs : kLookMs;
}

int DueMs(RTSPStreamInfo &stream) {
    const ReadAhead *const reader = stream.session->connection.readAhead;
    if (reader == nullptr) return -1;
    if (HasPending(reader->stream)) return 0;
    const int grace = Sooner(ReplyGraceLeft(*reader), GoodbyesDueIn(*stream.session));
    return grace < 0 && WantsToWrite(reader->stream) ? kWriteMs : grace;
}

ReceiveTurn *Turn(RTSPStreamInfo &stream) { return &stream.session->connection.turn; }

// A paused connection is read exactly as long as a reply is due, and by the thread.
bool AdmitsReaders(const RTSPStreamInfo &stream) {
    return stream.receiving && stream.streamState == kStreamPlaying;
}

Served ServeWaiting(RTSPStreamInfo &stream) { return ServeConnection(*stream.session, kTurnSliceMs); }

Served ServeWithin(RTSPStreamInfo &stream, int ms) { return ServeConnection(*stream.session, ms); }

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
    .dueMs = DueMs,
    .close = Close,
    .turn = Turn,
    .admitsReaders = AdmitsReaders,
    .serveWaiting = ServeWaiting,
    .serveWithin = ServeWithin, // it tells readers itself: whom is known in the turn only
};

// ---- a connection without frames ----

bool ReadConnection(MediaSession &session) {
    ReadAhead *const reader = OpenReader(session.connection);
    if (reader == nullptr) return true; // another time
    const Fill fill = FillReader(*reader, 0);
    const bool graceIsOver = ReplyGraceLeft(*reader) == 0;
    TakeUnits(session, *reader, ReplyEnd::kFirstDollar, fill == Fill::kClosed, graceIsOver);
    return fill != Fill::kClosed;
}

// ---- the reply to the first PLAY ----

namespace {

enum class WaitEnd { kReadable, kNothing, kDeadline, kFailed };

// Waits for the reply as every exchange does, or for the rest of one. A signal fails the wait, but not that for a
// rest.
WaitEnd WaitForReply(MediaSession &session, const ReplyWait &wait, const ReadAhead &reader, uint64_t deadlineMs) {
    const uint64_t now = MonotonicMs();
    if (now >= deadlineMs || MustGiveUp()) return WaitEnd::kDeadline;
    const int grace = ReplyGraceLeft(reader);
    const auto left = static_cast<int>(deadlineMs - now);
    if (HasPending(reader.stream)) return WaitEnd::kReadable;
    const int limit = grace >= 0 ? std::min(grace, left) : left;
    const bool servesToo = IsThreadless(session) && !IsOnFiber();
    const int ready =
        servesToo ? ServeUntilReadable(session, reader.socket, limit) : wait.For(reader.socket, limit);
    if (ready < 0 && grace < 0 && reader.stream == nullptr) return WaitEnd::kFailed;
    return ready > 0 ? WaitEnd::kReadable : WaitEnd::kNothing;
}

} // namespace

RecvBufferPtr ReceiveReplyAmongFrames(MediaSession &session, int32_t &failure, bool takesFrames) {
    const CallTrace trace("ClientReadMessage");
    failure = RTSP_NO_RESPONSE;
    ReadAhead *const reader = OpenReader(session.connection);
    if (reader == nullptr) return nullptr;
    if (takesFrames) SizeRings(session);
    const ReplyWait waits(session.connection);
    const uint64_t deadline = MonotonicMs() + static_cast<uint64_t>(session.connection.replyLimitMs);
    for (bool closed = false;;) {
        const bool graceIsOver = ReplyGraceLeft(*reader) == 0 || MonotonicMs() >= deadline;
        const bool goesOn = TakeUnits(session, *reader, ReplyEnd::kFirstFrame, closed, graceIsOver);
        if (session.connection.recvData != nullptr || !goesOn || closed) break;
        const WaitEnd wait = WaitForReply(session, waits, *reader, deadline);
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
