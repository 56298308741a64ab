#include "rtp/interleaved/sending.h"

#include "platform/system.h"
#include "platform/waiting.h"

#include <cerrno>
#include <poll.h>
#include <sys/socket.h>

namespace rtsptap {
namespace {

constexpr int kLockTries = 5; // 1 ms apart; a request takes less, unless the server does not read

// Sends what is left of the unsent text; false while some remains. A failure drops it: the connection is broken.
bool SendLeft(Connection &connection, int flags) {
    UnsentText &unsent = connection.unsent;
    while (unsent.text != nullptr) {
        const auto left = static_cast<std::size_t>(unsent.text->length) - unsent.sent;
        const ssize_t sent = send(connection.socket, unsent.text->data + unsent.sent, left, flags | MSG_NOSIGNAL);
        if (sent < 0 && (errno == EAGAIN || IsInterrupted(errno))) return false;
        unsent.sent += sent < 0 ? left : static_cast<std::size_t>(sent);
        if (unsent.sent >= static_cast<std::size_t>(unsent.text->length)) DropUnsent(unsent);
    }
    connection.hasRest.store(false, std::memory_order_relaxed);
    return true;
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

bool IsClear(Connection &connection) {
    return connection.unsent.text == nullptr || SendLeft(connection, MSG_DONTWAIT);
}

bool SendRest(Connection &connection) {
    if (pthread_mutex_trylock(&connection.sendLock) != 0) return false;
    const ScopeExit unlock([&connection] { MutexUnlock(&connection.sendLock); });
    return IsClear(connection);
}

Sent SendWithoutWaiting(Connection &connection, RecvBufferPtr text) {
    if (!LockSoon(connection.sendLock)) return Sent::kNotNow;
    const ScopeExit unlock([&connection] { MutexUnlock(&connection.sendLock); });
    if (!IsClear(connection) || StaysFull(connection.socket, 0)) return Sent::kNotNow;
    const auto length = static_cast<std::size_t>(text->length);
    const ssize_t sent = send(connection.socket, text->data, length, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0) return errno == EAGAIN || IsInterrupted(errno) ? Sent::kNotNow : Sent::kFailed;
    if (static_cast<std::size_t>(sent) < length) {
        connection.unsent = {text.release(), static_cast<std::size_t>(sent)};
        connection.hasRest.store(true, std::memory_order_relaxed);
    }
    return Sent::kTaken;
}

namespace {

// What the socket does not take at once is left to be finished first by whoever sends next.
ssize_t SendPart(Connection &connection, std::string_view text) {
    const ScopedLock lock(connection.sendLock);
    errno = EAGAIN;
    if (!IsClear(connection)) return -1;
    const ssize_t sent = send(connection.socket, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0 || static_cast<std::size_t>(sent) == text.size()) return sent;
    RecvBufferPtr rest(CreateRecvBuffer(static_cast<uint32_t>(text.size())));
    if (rest == nullptr) return sent; // as a send that a signal interrupted
    text.copy(rest->data, text.size());
    rest->length = static_cast<int32_t>(text.size());
    connection.unsent = {rest.release(), static_cast<std::size_t>(sent)};
    connection.hasRest.store(true, std::memory_order_relaxed);
    return static_cast<ssize_t>(text.size());
}

// On a fiber: no call waits, and while the program goes on nobody holds the lock.
ssize_t SendInParts(Connection &connection, std::string_view text) {
    const uint64_t deadlineMs = MonotonicMs() + static_cast<uint64_t>(connection.replyLimitMs);
    ssize_t sent = SendPart(connection, text);
    while ((sent < 0 && (LastError() == EAGAIN || IsInterrupted(LastError()))) ||
           connection.hasRest.load(std::memory_order_relaxed)) {
        const uint64_t now = MonotonicMs();
        if (now >= deadlineMs || MustGiveUp()) break;
        pollfd room = {connection.socket, POLLOUT, 0};
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
    if (IsOnFiber()) return SendInParts(connection, text);
    const ScopedLock lock(connection.sendLock);
    while (!SendLeft(connection, 0)) {
    }
    return send(connection.socket, text.data(), text.size(), MSG_NOSIGNAL);
}

} // namespace rtsptap
