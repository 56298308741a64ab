#include "rtp/interleaved/sending.h"

#include "platform/system.h"
#include "platform/waiting.h"

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <utility>

namespace rtsptap {
namespace {

constexpr int kLockTries = 5; // 1 ms apart; a request takes less, unless the server does not read

// A byte stream never waits.
ssize_t SendBytes(const Connection &connection, std::string_view bytes, int flags) {
    const int32_t socket = connection.socket;
    const ByteStream *const stream = FindByteStream(connection.streams, socket);
    return stream != nullptr ? WriteBytes(*stream, bytes.data(), bytes.size())
                             : send(socket, bytes.data(), bytes.size(), flags | MSG_NOSIGNAL);
}

// A byte stream may keep some of what it has taken.
bool KeepsSome(const ByteStream &stream) { return WriteBytes(stream, nullptr, 0) < 0 && errno == EAGAIN; }

// Sends what is left of the unsent text; false while some remains. A failure drops it: the connection is broken.
bool SendLeft(Connection &connection, int flags) {
    UnsentText &unsent = connection.unsent;
    while (unsent.text != nullptr) {
        const auto left = static_cast<std::size_t>(unsent.text->length) - unsent.sent;
        const ssize_t sent = SendBytes(connection, {unsent.text->data + unsent.sent, left}, flags);
        if (sent < 0 && (errno == EAGAIN || IsInterrupted(errno))) return false;
        unsent.sent += sent < 0 ? left : static_cast<std::size_t>(sent);
        if (unsent.sent >= static_cast<std::size_t>(unsent.text->length)) DropUnsent(unsent);
    }
    if (const ByteStream *const stream = StreamOf(connection); stream != nullptr && KeepsSome(*stream))
        return false;
    connection.hasRest.store(false, std::memory_order_relaxed);
    return true;
}

void KeepRest(Connection &connection, RecvBufferPtr text, ssize_t sent) {
    connection.unsent = {text.release(), static_cast<std::size_t>(sent)};
    connection.hasRest.store(true, std::memory_order_relaxed);
}

// Not the wait with a time-out of the system's own, which thread checkers do not know.
bool LockSoon(pthread_mutex_t &lock) {
    for (int tries = 0; tries < kLockTries; ++tries) {
        if (pthread_mutex_trylock(&lock) == 0) return true;
        MSecDelay(1);
    }
    return false;
}

} // namespace

bool StaysFull(int socket, int timeoutMs) {
    pollfd wait = {.fd = socket, .events = POLLOUT, .revents = 0};
    return socket >= 0 && poll(&wait, 1, timeoutMs) == 0;
}

bool TakesMore(const Connection &connection) {
    return StreamOf(connection) != nullptr || !StaysFull(connection.socket, 0);
}

bool IsClear(Connection &connection) {
    return !connection.hasRest.load(std::memory_order_relaxed) || SendLeft(connection, MSG_DONTWAIT);
}

bool SendRest(Connection &connection) {
    if (pthread_mutex_trylock(&connection.sendLock) != 0) return false;
    const ScopeExit unlock([&connection] { MutexUnlock(&connection.sendLock); });
    return IsClear(connection);
}

Sent SendWithoutWaiting(Connection &connection, RecvBufferPtr text) {
    if (!LockSoon(connection.sendLock)) return Sent::kNotNow;
    const ScopeExit unlock([&connection] { MutexUnlock(&connection.sendLock); });
    if (!IsClear(connection) || !TakesMore(connection)) return Sent::kNotNow;
    const auto length = static_cast<std::size_t>(text->length);
    const ssize_t sent = SendBytes(connection, {text->data, length}, MSG_DONTWAIT);
    if (sent < 0) return errno == EAGAIN || IsInterrupted(errno) ? Sent::kNotNow : Sent::kFailed;
    if (static_cast<std::size_t>(sent) < length) KeepRest(connection, std::move(text), sent);
    return Sent::kTaken;
}

Sent WriteThrough(Connection &connection, const ByteStream &stream, std::span<const uint8_t> bytes) {
    const ssize_t sent = WriteBytes(stream, bytes.data(), bytes.size());
    if (sent < 0) return errno == EAGAIN || IsInterrupted(errno) ? Sent::kNotNow : Sent::kFailed;
    if (static_cast<std::size_t>(sent) == bytes.size()) {
        connection.hasRest.store(KeepsSome(stream), std::memory_order_relaxed);
        return Sent::kTaken;
    }
    RecvBufferPtr text(CreateRecvBuffer(static_cast<uint32_t>(bytes.size())));
    if (text == nullptr) return Sent::kFailed;
    memcpy(text->data, bytes.data(), bytes.size());
    text->length = static_cast<int32_t>(bytes.size());
    KeepRest(connection, std::move(text), sent);
    return Sent::kTaken;
}

namespace {

// What the connection does not take at once is left to be finished first by whoever sends next.
ssize_t SendPart(Connection &connection, std::string_view text) {
    const ScopedLock lock(connection.sendLock);
    errno = EAGAIN;
    if (!IsClear(connection)) return -1;
    const ssize_t sent = SendBytes(connection, text, MSG_DONTWAIT);
    if (sent < 0) return sent;
    if (static_cast<std::size_t>(sent) == text.size()) {
        const ByteStream *const stream = StreamOf(connection);
        if (stream != nullptr) connection.hasRest.store(KeepsSome(*stream), std::memory_order_relaxed);
        return sent;
    }
    RecvBufferPtr rest(CreateRecvBuffer(static_cast<uint32_t>(text.size())));
    if (rest == nullptr) return sent; // as a send that a signal interrupted
    text.copy(rest->data, text.size());
    rest->length = static_cast<int32_t>(text.size());
    KeepRest(connection, std::move(rest), sent);
    return static_cast<ssize_t>(text.size());
}

// On a fiber, or through a byte stream: no call waits, and while the program goes on nobody holds the lock.
ssize_t SendInParts(Connection &connection, std::string_view text) {
    const uint64_t deadlineMs = MonotonicMs() + static_cast<uint64_t>(connection.replyLimitMs);
    ssize_t sent = SendPart(connection, text);
    while ((sent < 0 && (LastError() == EAGAIN || IsInterrupted(LastError()))) ||
           connection.hasRest.load(std::memory_order_relaxed)) {
        const uint64_t now = MonotonicMs();
        if (now >= deadlineMs || MustGiveUp()) break;
        pollfd room = StreamWait(StreamOf(connection), connection.socket, RTSPTAP_STREAM_WRITING);
        WaitForSockets({&room, 1}, static_cast<int>(deadlineMs - now));
        if (sent < 0)
            sent = SendPart(connection, text);
        else
            SendRest(connection);
    }
    return sent;
}

} // namespace

ssize_t SendWaiting(Connection &connection, std::string_view text) {
    if (IsOnFiber() || StreamOf(connection) != nullptr) return SendInParts(connection, text);
    const ScopedLock lock(connection.sendLock);
    while (!SendLeft(connection, 0)) {
    }
    return send(connection.socket, text.data(), text.size(), MSG_NOSIGNAL);
}

} // namespace rtsptap
