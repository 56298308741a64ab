#include "rtp/interleaved/tending.h"

#include "platform/system.h"
#include "rtp/interleaved/connection.h"
#include "rtp/interleaved/interleaved_service.h"
#include "rtp/interleaved/sending.h"
#include "rtp/media_session.h"
#include "rtp/packet_queue.h"
#include "rtp/service_thread.h"
#include "rtp/serving.h"
#include "rtp/stream.h"
#include "rtsptap_extended.h"

#include <algorithm>
#include <cerrno>
#include <sys/socket.h>
#include <utility>

namespace rtsptap {

// ---- what is asked for ----

bool IsKeptAlive(const MediaSession &session) {
    return session.connection.tending.keepAlive.load(std::memory_order_relaxed) != 0;
}

bool IsTended(const MediaSession &session) {
    return IsKeptAlive(session) || session.dialect.IsOn(Rule::kServerRequest) ||
           session.dialect.IsOn(Rule::kServerCloses);
}

// ---- the end of the connection ----

bool IsClosed(const Connection &connection) {
    const int32_t socket = connection.socket;
    return socket >= 0 && connection.tending.closedSocket == socket;
}

bool HasEnded(const Connection &connection) {
    const int32_t socket = connection.socket;
    if (socket < 0 || IsClosed(connection)) return socket >= 0;
    char next = 0;
    const int error = errno;
    const ScopeExit restore([error] { errno = error; });
    const ssize_t peeked = recv(socket, &next, 1, MSG_PEEK | MSG_DONTWAIT);
    return peeked == 0 || (peeked < 0 && errno != EAGAIN && !IsInterrupted(errno));
}

void NoteClosed(MediaSession &session, int32_t socket) {
    Connection &connection = session.connection;
    connection.tending.closedSocket = socket;
    const bool isDoubted =
        session.dataProto == DATA_PROTO_UDP && session.dialect.IsOn(Rule::kMediaOutlivesConnection);
    connection.tending.doubtsEnd = isDoubted;
    connection.tending.lookMs = 0;
    if (!isDoubted) EndReceptions(session, RTSPTAP_CONNECTION_CLOSED);
    WakeReplyWaiter(connection);
}

namespace {

void EndAllReaderWaits(const MediaSession &session) {
    RTSPStreamInfo *stream = session.streamList.load(std::memory_order_acquire);
    for (; stream != nullptr; stream = stream->next.load(std::memory_order_acquire)) EndReaderWaits(*stream);
}

} // namespace

void NoteSessionTimedOut(MediaSession &session) {
    EndReceptions(session, RTSPTAP_SESSION_TIMED_OUT);
    EndAllReaderWaits(session);
}

// ---- media that goes on over UDP ----

namespace {

constexpr uint64_t kSilenceMs = 2000;

// -1: nothing is doubted, or no more, since there is another connection.
int EndDueIn(const MediaSession &session) {
    const Tending &tending = session.connection.tending;
    if (!tending.doubtsEnd || !IsClosed(session.connection)) return -1;
    const uint64_t now = MonotonicMs();
    return tending.lookMs > now ? static_cast<int>(tending.lookMs - now) : 0;
}

void JudgeEnd(MediaSession &session) {
    if (EndDueIn(session) != 0) return;
    Tending &tending = session.connection.tending;
    const bool isFirst = tending.lookMs == 0;
    const uint32_t before = std::exchange(tending.packets, session.packetCounter.load(std::memory_order_relaxed));
    tending.lookMs = MonotonicMs() + kSilenceMs;
    if (isFirst) return;
    if (before != tending.packets) return (void)session.dialect.Permits(Rule::kMediaOutlivesConnection);
    tending.doubtsEnd = false;
    EndReceptions(session, RTSPTAP_CONNECTION_CLOSED);
    EndAllReaderWaits(session);
}

} // namespace

// ---- keeping the session alive ----

void NoteRequest(Connection &connection) { connection.tending.lastRequestMs = MonotonicMs(); }

// The thread that tends may rest, until the next one was due.
void RepeatKeepAlive(Connection &connection) {
    connection.tending.lastRequestMs = 0;
    if (connection.turn.thread != nullptr) WakeStreamThread(*connection.turn.thread);
}

namespace {

constexpr int64_t kShortestMs = 100;
constexpr int64_t kShortestOfServerMs = 500;
constexpr int64_t kDefaultTimeoutMs = 60000; // RFC 2326, 12.37
constexpr uint64_t kRetryMs = 200;           // the server does not read, or somebody else writes
constexpr uint64_t kNoSessionMs = 1000;      // nothing to be kept alive, yet
constexpr int kRestMs = 20;                  // the rest of a text that was sent in part
constexpr int kIdleMs = 60000;               // nothing is due

uint64_t IntervalMs(const Tending &tending) {
    const int64_t chosen = tending.keepAlive.load(std::memory_order_relaxed);
    const int64_t timeout = tending.sessionTimeoutMs.load(std::memory_order_relaxed);
    if (chosen > 0) return static_cast<uint64_t>(std::max(chosen, kShortestMs));
    return static_cast<uint64_t>(std::max((timeout > 0 ? timeout : kDefaultTimeoutMs) / 2, kShortestOfServerMs));
}

uint64_t DueMs(const Tending &tending) {
    return std::max(tending.lastRequestMs.load(std::memory_order_relaxed) + IntervalMs(tending),
                    tending.notBeforeMs);
}

// -1: nothing is due.
int KeepAliveDueIn(const MediaSession &session) {
    const Connection &connection = session.connection;
    if (connection.hasRest.load(std::memory_order_relaxed) || WantsToWrite(StreamOf(connection))) return kRestMs;
    if (!IsKeptAlive(session) || IsClosed(connection)) return -1;
    const uint64_t due = DueMs(connection.tending);
    const uint64_t now = MonotonicMs();
    return due > now ? static_cast<int>(std::min<uint64_t>(due - now, kIdleMs)) : 0;
}

int WaitFor(int dueInMs) { return dueInMs < 0 ? kIdleMs : dueInMs; }

// How long to leave it now; 0 when it has gone out. It is noted first: a reader may have its reply at once.
uint64_t SendKeepAlive(MediaSession &session) {
    Connection &connection = session.connection;
    if (!TakesMore(connection)) return kRetryMs;
    uint32_t cSeq = 0;
    RecvBufferPtr text = connection.tending.writeKeepAlive(session, cSeq);
    if (text == nullptr) return kNoSessionMs;
    NoteKeepAlive(connection, cSeq);
    if (SendWithoutWaiting(connection, std::move(text)) == Sent::kTaken) return 0;
    ForgetKeepAlive(connection, cSeq);
    return kRetryMs;
}

void Tend(MediaSession &session) {
    Connection &connection = session.connection;
    if (connection.hasRest.load(std::memory_order_relaxed)) SendRest(connection);
    if (!IsKeptAlive(session) || IsClosed(connection) || connection.tending.writeKeepAlive == nullptr) return;
    const uint64_t now = MonotonicMs();
    if (now < DueMs(connection.tending)) return;
    const uint64_t leaveMs = SendKeepAlive(session);
    if (leaveMs == 0) NoteRequest(connection);
    connection.tending.notBeforeMs = now + leaveMs;
}

// ---- the services ----

bool Open(StreamThread &thread) {
    thread.stream->session->connection.tending.isUnread = true;
    return true;
}

// They keep no stream going that is paused: the loop serves them all the same.
bool IsActive(RTSPStreamInfo & /*stream*/) { return false; }

void Close(StreamThread & /*thread*/) {}

int NoSocket(const RTSPStreamInfo & /*stream*/) { return -1; }

int DueIn(RTSPStreamInfo &stream) { return KeepAliveDueIn(*stream.session); }

int WaitMs(RTSPStreamInfo &stream) { return WaitFor(DueIn(stream)); }

// Without the service beside it, which reads the connection, nothing is left to do.
Served ServeBeside(StreamThread &thread, const Readiness & /*readiness*/) {
    if (thread.over[0]) return Served::kEnded;
    Tend(*thread.stream->session);
    return Served::kNothingLeft;
}

int ConnectionSocket(const RTSPStreamInfo &stream) {
    const Connection &connection = stream.session->connection;
    return IsClosed(connection) ? -1 : connection.socket.load();
}

// One that is closed is read no more, and an exchange may put another one in its place.
int ConnectionDueIn(RTSPStreamInfo &stream) {
    const MediaSession &session = *stream.session;
    const int due = Sooner(EndDueIn(session), KeepAliveDueIn(session));
    if (ConnectionSocket(stream) < 0) return due;
    if (session.connection.tending.isUnread) return 0;
    const ReadAhead *const reader = session.connection.readAhead;
    return Sooner(due, reader != nullptr ? ReplyGraceLeft(*reader) : -1);
}

int ConnectionWaitMs(RTSPStreamInfo &stream) { return WaitFor(ConnectionDueIn(stream)); }

// Streams over UDP go on as long as the server sends: readers are told, and may wait on.
Served ServeConnection(StreamThread &thread, const Readiness &readiness) {
    MediaSession &session = *thread.stream->session;
    Tend(session);
    JudgeEnd(session);
    if (ConnectionSocket(*thread.stream) < 0) return Served::kNothingLeft;
    const ReadAhead *const reader = session.connection.readAhead;
    const bool graceIsOver = reader != nullptr && ReplyGraceLeft(*reader) == 0;
    const bool isUnread = std::exchange(session.connection.tending.isUnread, false);
    if (readiness.events == 0 && !graceIsOver && !isUnread) return Served::kNothingLeft;
    const int32_t socket = session.connection.socket;
    if (ReadConnection(session)) {
        session.connection.tending.isUnread = HasPending(StreamOf(session.connection));
        return Served::kNothingLeft;
    }
    NoteClosed(session, socket);
    if (!session.connection.tending.doubtsEnd) EndAllReaderWaits(session);
    return Served::kNothingLeft;
}

} // namespace

constinit const Service kKeepAliveService{
    .threadName = "RTPDataReceiveThread",
    .open = Open,
    .isActive = IsActive,
    .serve = ServeBeside,
    .socket = NoSocket,
    .waitMs = WaitMs,
    .dueMs = DueIn,
    .close = Close,
};

constinit const Service kConnectionService{
    .threadName = "RTPDataReceiveThread",
    .open = Open,
    .isActive = IsActive,
    .serve = ServeConnection,
    .socket = ConnectionSocket,
    .waitMs = ConnectionWaitMs,
    .dueMs = ConnectionDueIn,
    .close = Close,
};

} // namespace rtsptap
