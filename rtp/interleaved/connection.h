// The RTSP connection as reception sees it: a socket that requests and reports are written to and that replies and,
// interleaved, frames are read from (RFC 2326, 10.12); the bytes read ahead of it; and the one reply that may be on
// its way to an exchange. The receive thread reads a connection while it carries media, and readers in their turn;
// a reply that it finds is posted here and taken by the application's thread that waits for it.
#pragma once

#include "rtp/interleaved/byte_stream.h"
#include "rtp/receive_turn.h"
#include "rtsptap.h"

#include <array>
#include <atomic>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

namespace rtsptap {

struct MediaSession;
struct RTSPStreamInfo;

inline constexpr uint32_t kReplyBytes = 33792;        // the most that one reply may hold
inline constexpr uint32_t kFramedReplyBytes = 65536;  // the same for one that ends where it says
inline constexpr int kReplyTimeoutMs = 25000;         // how long a reply is waited for by default
inline constexpr std::size_t kFrameHeaderBytes = 4;   // "$", channel, length
inline constexpr std::size_t kReadAheadBytes = 65536; // asked of the socket at once
inline constexpr std::size_t kReaderBytes = kReadAheadBytes + kFrameHeaderBytes + 65535; // and the longest frame
inline constexpr std::size_t kSmallestLoan = 32768;                                      // room worth reading into
inline constexpr std::size_t kSmallRest = 4096; // bytes that are moved rather than left where they are

// How long the rest of a reply may take that came in pieces, in ms: longer than a lost segment needs to be
// sent again, which on Linux is 200 ms at the least.
inline constexpr int kReplyGraceMs = 1000;

// ---- A reply as it came ----

struct RecvBuffer {
    int32_t length = 0;   // bytes received
    char *data = nullptr; // owned, free(): zeroed beyond length, at least one byte more
};

// A buffer with room for `capacity` bytes and a terminator, zeroed; null when memory is short.
RecvBuffer *CreateRecvBuffer(uint32_t capacity);
// Gives back the room behind what was received.
void ShrinkRecvBuffer(RecvBuffer &recvBuffer);
void ReleaseRecvBuffer(RecvBuffer *recvBuffer);

struct RecvBufferDeleter {
    void operator()(RecvBuffer *recvBuffer) const { ReleaseRecvBuffer(recvBuffer); }
};
using RecvBufferPtr = std::unique_ptr<RecvBuffer, RecvBufferDeleter>;

// ---- Bytes read ahead ----

// Whose frames a channel carries.
struct Route {
    RTSPStreamInfo *stream = nullptr; // null: nobody's
    bool isRtcp = false;
};

// Of whoever has the connection's turn, alone; the next one goes on in the middle of a frame if need be.
//
// Bytes are read into memory of its own or into the free room of the ring that most of them are for, where a
// frame's body then stays, or moves down by what lies before it: half as much memory passes through the caches. A body
// never moves up, so what has not been looked at is not overwritten.
struct ReadAhead {
    uint8_t *bytes = own; // `own` or lent
    std::size_t capacity = kReaderBytes;
    int32_t socket = -1;                // the connection that the bytes came from
    const ByteStream *stream = nullptr; // what lies before it; null: nothing
    std::size_t begin = 0;              // first byte not yet consumed
    std::size_t end = 0;                // behind the last byte received
    std::size_t replyTail = 0;          // bytes from `begin` on that came in the same read as a reply before them
    std::size_t freshBytes = 0;         // the last of them, by the read that has not been looked at yet
    std::size_t staleBytes = 0;         // from `begin` on, received before the exchange under way began
    uint64_t replySinceMs = 0;          // since when an incomplete reply waits for its rest; 0: none does
    bool waitIsLimited = false;         // a receive call waits kTurnSliceMs and no longer
    std::size_t replyBytes = 0;         // of an incomplete reply, when it was last looked at
    bool outOfStep = false;   // bytes were dropped, and no reply has been found behind them: a header may be none
    std::size_t skipLeft = 0; // bytes still to come that nobody takes: of a body, or of a frame without a place
    uint64_t skippedMs = 0;   // when the last of them came
    uint32_t exchange = 0;    // the connection's exchangeCount as it was last seen
    uint32_t routesMade = 0;  // the session's channelChanges that `routes` was made after
    std::array<Route, 256> routes = {};  // by channel
    std::bitset<256> channels;           // of which are somebody's
    RTSPStreamInfo *signalDue = nullptr; // streams with data that no reader has been told of, by nextSignalDue
    RTSPStreamInfo *lender = nullptr;    // the stream whose ring is asked for room
    uint8_t own[kReaderBytes];           // not cleared: most sessions need little of it
};

std::size_t Buffered(const ReadAhead &reader);
std::string_view BufferedText(const ReadAhead &reader);
void Consume(ReadAhead &reader, std::size_t count);
// Drops that many bytes, also those that have not come yet.
void Skip(ReadAhead &reader, std::size_t count);
// Drops what has come of them. When nothing came for kReplyGraceMs the rest is not believed in any more.
void GoOnSkipping(ReadAhead &reader);

// Bytes are read into this room from here on. It stays the lender's, who must not use it before ReturnRoom. Does
// nothing while a frame is under way that is too long to be moved again and again.
void LendRoom(ReadAhead &reader, std::span<uint8_t> room);
// What is left goes to memory of its own.
void ReturnRoom(ReadAhead &reader);

// The time in ms until an incomplete reply is handed over as it is; -1 when none waits.
int ReplyGraceLeft(const ReadAhead &reader);

enum class Fill { kBytes, kNothing, kClosed };

// Waits up to `timeoutMs` (0: not at all) for the socket, then reads once. kTurnSliceMs costs least: that long the
// receive call waits itself.
Fill FillReader(ReadAhead &reader, int timeoutMs);

// ---- Whose reply it is ----

// What the numbers of a server's replies are worth: some servers' are old, or always the same.
enum class ReplyNumbers { kUnknown, kFit, kTellNothing };

struct SentKeepAlive {
    uint32_t cSeq = 0; // 0: its reply has come
    uint64_t sentMs = 0;
};

// Guarded by the connection's replyLock.
struct AwaitedReplies {
    uint32_t awaited = 0;         // CSeq of the exchange under way; 0: none, or no number tells
    uint32_t firstUnanswered = 0; // of the first request whose reply did not come in time; 0: all came
    ReplyNumbers numbers = ReplyNumbers::kUnknown;
    bool droppedLate = false;                     // one in this exchange
    std::array<SentKeepAlive, 4> keepAlives = {}; // the last ones whose replies have not come
};

// ---- The connection ----

// What the socket has taken a part of. A plain pointer, because a session has standard layout with every compiler.
struct UnsentText {
    RecvBuffer *text = nullptr; // owned; null: nothing
    std::size_t sent = 0;
};
inline void DropUnsent(UnsentText &unsent) {
    const RecvBufferPtr text(unsent.text);
    unsent = {};
}

// What is done for the connection while nobody asks anything: see tending.h.
struct Tending {
    // ---- Constant once connected: filled by who owns the session ----
    // The next request that keeps it alive, and its number; null when there is no session, or memory is short.
    RecvBufferPtr (*writeKeepAlive)(MediaSession &session, uint32_t &cSeq) = nullptr;
    void (*takeReply)(MediaSession &session, std::string_view reply) = nullptr; // to one of those

    // ---- Written by the application thread ----
    std::atomic<int64_t> keepAlive{0};        // ms between two requests; -1: half of the session's timeout; 0: none
    std::atomic<int64_t> sessionTimeoutMs{0}; // as the server says; 0: it does not

    // ---- Written by whoever sends, or serves ----
    std::atomic<uint64_t> lastRequestMs{0}; // MonotonicMs when the last request of the session went out
    std::atomic<int32_t> closedSocket{-1};  // the connection that has ended
    uint64_t notBeforeMs = 0;               // of the thread that tends: when to try again
    bool isUnread = false;                  // the same: what an exchange has left has not been looked at
    bool doubtsEnd = false;                 // the same: streams over UDP may outlive the connection that has ended
    uint64_t lookMs = 0;                    // the same: MonotonicMs when to look whether they do; 0: not looked yet
    uint32_t packets = 0;                   // of all streams, by the last look
};

struct Connection {
    // ---- Application thread ----
    int replyLimitMs = kReplyTimeoutMs; // how long the reply of the exchange under way is waited for

    // ---- Written by the application thread, read by the receive threads ----
    std::atomic<int32_t> socket{-1};
    std::atomic<bool> awaitingReply{false}; // an exchange waits: a paused connection is read on
    std::atomic<uint32_t> exchangeCount{0}; // exchanges begun: text that is older answers none of them
    ByteStreams streams;                    // of this socket and of those before it

    // ---- Whoever serves the connection: a thread, a reader, or an exchange when no thread does ----
    ReceiveTurn turn;
    ReadAhead *readAhead = nullptr; // owned

    // ---- Writing ----
    pthread_mutex_t sendLock = PTHREAD_MUTEX_INITIALIZER; // guards writing to the socket, and the next; a leaf
    UnsentText unsent;                                    // to be finished before anything else is written
    std::atomic<bool> hasRest{false};                     // there is one

    Tending tending;

    // ---- A reply on its way: see PostReply ----
    std::atomic<RecvBuffer *> recvData{nullptr};              // owned; changes owner by exchange()
    pthread_mutex_t replyLock = PTHREAD_MUTEX_INITIALIZER;    // of what follows; a leaf
    pthread_cond_t replyCondition = PTHREAD_COND_INITIALIZER; // recvData was set
    int replyWake = -1; // eventfd of a fiber that waits for the same; -1: none does
    AwaitedReplies awaitedReplies;
};

// What lies between its socket and its bytes; null: nothing. Any thread.
inline const ByteStream *StreamOf(const Connection &connection) {
    return FindByteStream(connection.streams, connection.socket);
}

// The connection's bytes read ahead, made at first use; null when memory is short. Starts afresh on another socket.
ReadAhead *OpenReader(Connection &connection);
// The connection is closed and no thread serves it: the next one may get the same descriptor.
void ForgetConnection(Connection &connection);
void ReleaseConnection(Connection &connection);

// ---- Replies ----

// Before a request goes out: forgets a reply that nobody waited for, and lets a paused connection be read.
// `cSeq` is the request's number, 0 when it cannot tell replies apart.
void BeginAwaiting(Connection &connection, int limitMs = kReplyTimeoutMs, uint32_t cSeq = 0);
// The exchange is over.
void EndAwaiting(Connection &connection);
// Before another connection takes its place: nothing is owed that was asked, or half sent, on the last one.
void BeginConnection(Connection &connection);
// The reply did not come in time: it may still come.
void NoteUnanswered(Connection &connection, uint32_t cSeq);

// Whoever sends a request that keeps the session alive, before it goes out: its reply is nobody's. Or it has not.
void NoteKeepAlive(Connection &connection, uint32_t cSeq);
void ForgetKeepAlive(Connection &connection, uint32_t cSeq);

// What a reply is to the exchange under way. Whoever serves the connection, once for each.
enum class ReplyFate { kAnswers, kIsLate, kIsProvisional, kIsOfKeepAlive };
ReplyFate JudgeReply(Connection &connection, std::string_view text);

// Whoever serves the connection: hands a reply over, in the place of one that nobody has taken. False when memory
// is short.
bool PostReply(Connection &connection, std::string_view text);
// Whoever waits for a reply looks around. Any thread.
void WakeReplyWaiter(Connection &connection);
// Waits for a socket to be readable, as poll(2) on a thread. A fiber is woken by what would wake the reply's
// condition, too: it may not wait for that.
class ReplyWait {
public:
    explicit ReplyWait(Connection &connection);
    ~ReplyWait();
    ReplyWait(const ReplyWait &) = delete;
    ReplyWait &operator=(const ReplyWait &) = delete;
    int For(int socket, int timeoutMs) const; // -1: no socket

private:
    Connection &connection_;
    const int wake_;
};
// The reply that was posted, if one was.
RecvBufferPtr TakePostedReply(Connection &connection);
// The same, when one comes within replyLimitMs; with `untilClosed` only as long as the connection lives.
// Application thread.
RecvBufferPtr WaitForPostedReply(Connection &connection, bool untilClosed);

} // namespace rtsptap
