#include "rtp/interleaved/sending.h"

#include "platform/system.h"

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

ssize_t SendWaiting(Connection &connection, std::string_view text) {
    const ScopedLock lock(connection.sendLock);
    while (!SendLeft(connection, 0)) {
    }
    return send(connection.socket, text.data(), text.size(), MSG_NOSIGNAL);
}

} // namespace rtsptap
