#include "rtp/interleaved/connection.h"

#include "platform/printers.h"
#include "platform/system.h"
#include "platform/waiting.h"
#include "rtp/interleaved/splitter.h"
#include "rtp/interleaved/tending.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace rtsptap {

// ---- a reply as it came ----

RecvBuffer *CreateRecvBuffer(uint32_t capacity) {
    RecvBufferPtr recvBuffer(new (std::nothrow) RecvBuffer{});
    if (!recvBuffer) return nullptr;
    recvBuffer->data = static_cast<char *>(std::calloc(std::size_t{capacity} + 1, 1));
    return recvBuffer->data == nullptr ? nullptr : recvBuffer.release();
}

void ShrinkRecvBuffer(RecvBuffer &recvBuffer) {
    void *const shrunk = std::realloc(recvBuffer.data, static_cast<std::size_t>(recvBuffer.length) + 1);
    if (shrunk != nullptr) recvBuffer.data = static_cast<char *>(shrunk);
}

void ReleaseRecvBuffer(RecvBuffer *recvBuffer) {
    if (recvBuffer == nullptr) return;
    // One that was sent may hold a password. The length is negative where receiving failed.
    const auto length = static_cast<std::size_t>(std::max(recvBuffer->length, 0));
    if (recvBuffer->data != nullptr) explicit_bzero(recvBuffer->data, length);
    std::free(recvBuffer->data);
    delete recvBuffer;
}

// ---- bytes read ahead ----

namespace {

void StartAfresh(ReadAhead &reader, int32_t socket) {
    reader.socket = socket;
    reader.stream = nullptr;
    reader.lender = nullptr; // its streams may go with the session
    reader.bytes = reader.own;
    reader.capacity = kReaderBytes;
    reader.begin = reader.end = reader.replyTail = reader.freshBytes = reader.staleBytes = 0;
    reader.replySinceMs = 0;
    reader.waitIsLimited = reader.outOfStep = false;
    reader.skipLeft = 0;
}

bool IsLent(const ReadAhead &reader) { return reader.bytes != reader.own; }

void MoveTo(ReadAhead &reader, std::span<uint8_t> room) {
    if (Buffered(reader) > 0) memmove(room.data(), reader.bytes + reader.begin, Buffered(reader));
    reader.end -= reader.begin;
    reader.begin = 0;
    reader.bytes = room.data();
    reader.capacity = room.size();
}

// Moves what is left to the front when a whole read no longer fits behind it. In a ring the front may be a
// packet's.
void MakeRoom(ReadAhead &reader) {
    if (!IsLent(reader) && reader.capacity - reader.end < kReadAheadBytes) MoveTo(reader, reader.own);
}

} // namespace

std::size_t Buffered(const ReadAhead &reader) { return reader.end - reader.begin; }

std::string_view BufferedText(const ReadAhead &reader) {
    return {reinterpret_cast<const char *>(reader.bytes + reader.begin), Buffered(reader)};
}

void Consume(ReadAhead &reader, std::size_t count) {
    reader.begin += count;
    reader.replyTail -= std::min(reader.replyTail, count);
    reader.staleBytes -= std::min(reader.staleBytes, count);
    if (reader.begin == reader.end) reader.begin = reader.end = 0;
}

void Skip(ReadAhead &reader, std::size_t count) {
    const std::size_t there = std::min(count, Buffered(reader));
    Consume(reader, there);
    reader.skipLeft = count - there;
    reader.skippedMs = MonotonicMs();
}

void GoOnSkipping(ReadAhead &reader) {
    if (Buffered(reader) == 0) return;
    const bool isBelieved = MonotonicMs() - reader.skippedMs <= kReplyGraceMs;
    reader.outOfStep = reader.outOfStep || !isBelieved;
    Skip(reader, isBelieved ? reader.skipLeft : 0);
}

void LendRoom(ReadAhead &reader, std::span<uint8_t> room) {
    const std::size_t left = Buffered(reader);
    const bool goesOn = left > kSmallRest && reader.capacity - reader.end >= kSmallestLoan;
    if (goesOn || room.size() < left + kSmallestLoan) return;
    MoveTo(reader, room.first(std::min(room.size(), kReaderBytes)));
}

void ReturnRoom(ReadAhead &reader) {
    if (IsLent(reader)) MoveTo(reader, reader.own);
}

int ReplyGraceLeft(const ReadAhead &reader) {
    if (reader.replySinceMs == 0) return -1;
    const uint64_t waited = MonotonicMs() - reader.replySinceMs;
    return waited >= kReplyGraceMs ? 0 : kReplyGraceMs - static_cast<int>(waited);
}

namespace {

enum class Arrival { kThere, kNone, kFailed };

Arrival WaitForArrival(pollfd arrival, int timeoutMs) {
    const int ready = poll(&arrival, 1, timeoutMs);
    if (ready > 0) return Arrival::kThere;
    return ready == 0 || errno == EINTR ? Arrival::kNone : Arrival::kFailed;
}

// Whether a receive call itself may do the waiting. The limit stays with the socket: other calls only read what has
// been seen to be there.
bool ReceiveMayWait(ReadAhead &reader, int timeoutMs) {
    if (timeoutMs != kTurnSliceMs) return false;
    if (!reader.waitIsLimited) reader.waitIsLimited = LimitReceiveWait(reader.socket, kTurnSliceMs);
    return reader.waitIsLimited;
}

// Of what a stream has ready nothing is left behind for which there is room: the socket would not tell of it.
ssize_t ReadAll(const ByteStream &stream, std::span<uint8_t> room) {
    std::size_t count = 0;
    do {
        const ssize_t received = ReadBytes(stream, room.data() + count, room.size() - count);
        if (received < 1) return count > 0 ? static_cast<ssize_t>(count) : received;
        count += static_cast<std::size_t>(received);
    } while (count < room.size() && HasPending(&stream));
    return static_cast<ssize_t>(count);
}

Fill FillThrough(ReadAhead &reader, int timeoutMs) {
    const pollfd wait = StreamWait(reader.stream, reader.socket, RTSPTAP_STREAM_READING);
    const Arrival arrival =
        timeoutMs <= 0 || HasPending(reader.stream) ? Arrival::kThere : WaitForArrival(wait, timeoutMs);
    if (arrival != Arrival::kThere) return arrival == Arrival::kNone ? Fill::kNothing : Fill::kClosed;
    MakeRoom(reader);
    const std::size_t room = std::min(kReadAheadBytes, reader.capacity - reader.end);
    const ssize_t received = ReadAll(*reader.stream, {reader.bytes + reader.end, room});
    if (received < 0 && (errno == EAGAIN || IsInterrupted(errno))) return Fill::kNothing;
    if (received < 1) return Fill::kClosed;
    reader.freshBytes = static_cast<std::size_t>(received);
    reader.end += reader.freshBytes;
    return Fill::kBytes;
}

} // namespace

Fill FillReader(ReadAhead &reader, int timeoutMs) {
    if (reader.stream != nullptr) [[unlikely]]
        return FillThrough(reader, timeoutMs);
    const bool waitsInCall = ReceiveMayWait(reader, timeoutMs);
    const Arrival arrival =
        waitsInCall || timeoutMs <= 0 ? Arrival::kThere : WaitForArrival({reader.socket, POLLIN, 0}, timeoutMs);
    if (arrival != Arrival::kThere) return arrival == Arrival::kNone ? Fill::kNothing : Fill::kClosed;
    MakeRoom(reader);
    const std::size_t room = std::min(kReadAheadBytes, reader.capacity - reader.end);
    const int received = ReceiveBytes(reader.socket, reader.bytes + reader.end, static_cast<int>(room),
                                      waitsInCall ? 0 : MSG_DONTWAIT);
    if (received < 0 && (errno == EAGAIN || IsInterrupted(errno))) return Fill::kNothing;
    if (received < 1) return Fill::kClosed;
    reader.freshBytes = static_cast<std::size_t>(received);
    reader.end += reader.freshBytes;
    return Fill::kBytes;
}

// ---- the connection ----

ReadAhead *OpenReader(Connection &connection) {
    if (connection.readAhead == nullptr) connection.readAhead = new (std::nothrow) ReadAhead;
    ReadAhead *const reader = connection.readAhead;
    const int32_t socket = connection.socket;
    if (reader != nullptr && reader->socket != socket) {
        StartAfresh(*reader, socket);
        reader->stream = FindByteStream(connection.streams, socket);
    }
    return reader;
}

void ForgetConnection(Connection &connection) {
    if (connection.readAhead != nullptr) StartAfresh(*connection.readAhead, -1);
    BeginConnection(connection);
}

void ReleaseConnection(Connection &connection) {
    DropUnsent(connection.unsent);
    EndByteStreams(connection.streams);
    delete connection.readAhead;
    TakePostedReply(connection);
}

// ---- replies ----

void BeginAwaiting(Connection &connection, int limitMs, uint32_t cSeq) {
    connection.replyLimitMs = limitMs;
    TakePostedReply(connection);
    {
        const ScopedLock lock(connection.replyLock);
        connection.awaitedReplies.awaited = cSeq;
        connection.awaitedReplies.droppedLate = false;
    }
    ++connection.exchangeCount; // whoever serves the connection drops text that is older
    connection.awaitingReply = true;
}

void EndAwaiting(Connection &connection) {
    connection.awaitingReply = false;
    TakePostedReply(connection);
}

void BeginConnection(Connection &connection) {
    {
        const ScopedLock lock(connection.replyLock);
        connection.awaitedReplies = {};
    }
    const ScopedLock lock(connection.sendLock);
    DropUnsent(connection.unsent);
    connection.hasRest = false;
    connection.tending.closedSocket = -1;
}

// A server whose late reply was dropped, and that then seems silent, may number its replies in a way of its own.
void NoteUnanswered(Connection &connection, uint32_t cSeq) {
    const ScopedLock lock(connection.replyLock);
    AwaitedReplies &replies = connection.awaitedReplies;
    if (replies.firstUnanswered == 0) replies.firstUnanswered = cSeq;
    if (replies.droppedLate && replies.numbers == ReplyNumbers::kUnknown)
        replies.numbers = ReplyNumbers::kTellNothing;
}

void NoteKeepAlive(Connection &connection, uint32_t cSeq) {
    const ScopedLock lock(connection.replyLock);
    *std::ranges::min_element(connection.awaitedReplies.keepAlives, {}, &SentKeepAlive::cSeq) = {cSeq,
                                                                                                 MonotonicMs()};
}

void ForgetKeepAlive(Connection &connection, uint32_t cSeq) {
    const ScopedLock lock(connection.replyLock);
    for (SentKeepAlive &sent : connection.awaitedReplies.keepAlives)
        if (sent.cSeq == cSeq) sent = {};
}

namespace {

constexpr uint64_t kKeepAliveReplyMs = 2000; // later than that a reply without a number of use is another's

// The keep-alive that a reply answers: that of its number. Where the number says nothing, replies come in the order
// of the requests: the first one before the request of the exchange under way, if that was a moment ago.
SentKeepAlive *FindKeepAlive(AwaitedReplies &replies, uint32_t number, bool isAwaited) {
    const uint64_t now = MonotonicMs();
    SentKeepAlive *first = nullptr;
    for (SentKeepAlive &sent : replies.keepAlives) {
        if (sent.cSeq == 0) continue;
        if (sent.cSeq == number && replies.numbers != ReplyNumbers::kTellNothing) return &sent;
        const bool mayBe = !isAwaited || (sent.cSeq < replies.awaited && now - sent.sentMs < kKeepAliveReplyMs);
        if (mayBe && (first == nullptr || sent.cSeq < first->cSeq)) first = &sent;
    }
    return first;
}

// Without a request that was given up, numbers tell nothing of late replies.
ReplyFate JudgeNumber(AwaitedReplies &replies, uint32_t number, bool isAwaited) {
    const uint32_t awaited = replies.awaited;
    const bool isExact = isAwaited && number != 0 && number == awaited;
    SentKeepAlive *const keepAlive = isExact ? nullptr : FindKeepAlive(replies, number, isAwaited);
    if (keepAlive != nullptr) {
        keepAlive->cSeq = 0;
        return ReplyFate::kIsOfKeepAlive;
    }
    const bool isLate = replies.numbers != ReplyNumbers::kTellNothing && number != 0 &&
                        replies.firstUnanswered != 0 && number >= replies.firstUnanswered && number < awaited;
    if (isLate) {
        replies.droppedLate = true;
        return ReplyFate::kIsLate;
    }
    if (isAwaited && awaited != 0 && number != 0)
        replies.numbers = isExact ? ReplyNumbers::kFit : ReplyNumbers::kTellNothing;
    return ReplyFate::kAnswers;
}

} // namespace

ReplyFate JudgeReply(Connection &connection, std::string_view text) {
    const ReplyHead head = ReadReplyHead(text);
    if (head.status >= 100 && head.status < 200) return ReplyFate::kIsProvisional;
    const ScopedLock lock(connection.replyLock);
    return JudgeNumber(connection.awaitedReplies, head.cSeq, connection.awaitingReply);
}

bool PostReply(Connection &connection, std::string_view text) {
    RecvBufferPtr reply(CreateRecvBuffer(std::max(kReplyBytes, static_cast<uint32_t>(text.size()))));
    if (reply == nullptr) return false;
    memcpy(reply->data, text.data(), text.size());
    reply->length = static_cast<int32_t>(text.size());
    const RecvBufferPtr displaced(connection.recvData.exchange(reply.release()));
    WakeReplyWaiter(connection);
    return true;
}

void WakeReplyWaiter(Connection &connection) {
    const uint64_t one = 1;
    const ScopedLock lock(connection.replyLock);
    SignalOnConditionVar(&connection.replyCondition);
    if (connection.replyWake >= 0 && write(connection.replyWake, &one, sizeof one) < 0)
        DebugPrint(kDebugEntry, "\tthe wake-up is already set\n");
}

ReplyWait::ReplyWait(Connection &connection)
    : connection_(connection), wake_(IsOnFiber() ? eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK) : -1) {
    if (wake_ < 0) return;
    const ScopedLock lock(connection_.replyLock);
    connection_.replyWake = wake_;
}

ReplyWait::~ReplyWait() {
    if (wake_ < 0) return;
    {
        const ScopedLock lock(connection_.replyLock);
        connection_.replyWake = -1;
    }
    close(wake_);
}

// Without a descriptor to be woken by, a fiber looks again and again.
int ReplyWait::For(int socket, int timeoutMs) const {
    constexpr int kLookMs = 10;
    const ByteStream *const stream = FindByteStream(connection_.streams, socket);
    std::array<pollfd, 2> waits = {{StreamWait(stream, socket, RTSPTAP_STREAM_READING), {wake_, POLLIN, 0}}};
    if (!IsOnFiber()) return WaitForSockets(std::span(waits).first(1), timeoutMs);
    const int ready = WaitForSockets(waits, wake_ < 0 ? std::min(timeoutMs, kLookMs) : timeoutMs);
    uint64_t count = 0;
    if (waits[1].revents != 0 && read(wake_, &count, sizeof count) < 0)
        DebugPrint(kDebugEntry, "\tno wake-up is set\n");
    return ready;
}

RecvBufferPtr TakePostedReply(Connection &connection) {
    return RecvBufferPtr(connection.recvData.exchange(nullptr));
}

namespace {

RecvBufferPtr AwaitPostedReply(Connection &connection, bool untilClosed, uint64_t deadlineMs) {
    const ReplyWait wait(connection);
    for (;;) {
        const bool isLast = untilClosed && IsClosed(connection); // looked at first: it may have come just before
        if (RecvBufferPtr reply = TakePostedReply(connection); reply != nullptr || isLast) return reply;
        const uint64_t now = MonotonicMs();
        if (now >= deadlineMs || MustGiveUp()) return nullptr;
        wait.For(-1, static_cast<int>(deadlineMs - now));
    }
}

} // namespace

RecvBufferPtr WaitForPostedReply(Connection &connection, bool untilClosed) {
    const uint64_t deadlineMs = MonotonicMs() + static_cast<uint64_t>(connection.replyLimitMs);
    if (IsOnFiber()) return AwaitPostedReply(connection, untilClosed, deadlineMs);
    const timespec deadline = MonotonicTime(deadlineMs);
    const ScopedLock lock(connection.replyLock);
    for (int waited = 0; waited != ETIMEDOUT;) {
        const bool isLast = untilClosed && IsClosed(connection); // looked at first: it may have come just before
        if (RecvBufferPtr reply = TakePostedReply(connection); reply != nullptr || isLast) return reply;
        waited =
            pthread_cond_clockwait(&connection.replyCondition, &connection.replyLock, CLOCK_MONOTONIC, &deadline);
    }
    return TakePostedReply(connection);
}

} // namespace rtsptap
