// Writing to the RTSP connection: one writer at a time, and none of those that also read it ever waits for a server
// that does not. A text that the socket takes a part of only is finished before anything else is sent.
#pragma once

#include "rtp/interleaved/connection.h"

#include <cstdint>
#include <span>
#include <string_view>
#include <sys/types.h>

namespace rtsptap {

enum class Sent {
    kTaken,  // by the socket, or its rest will be
    kNotNow, // somebody else writes, or the server does not read: nothing was sent
    kFailed
};

// Whoever serves the connection. Waits a few ms at most, for another writer.
Sent SendWithoutWaiting(Connection &connection, RecvBufferPtr text);

// One send, never repeated, that may wait for the server; behind the rest of what was sent before. The result is
// that of send(2). Application thread.
ssize_t SendWaiting(Connection &connection, std::string_view text);

// The rest of a text that was sent in part. False while there is still some.
bool SendRest(Connection &connection);

// With the sendLock held, before something else is written without waiting: false while a text is unfinished.
bool IsClear(Connection &connection);

// With the sendLock held, and IsClear: sends without waiting, and keeps what the connection takes a part of, to be
// finished before anything else. Through a byte stream; a plain socket has ways of its own.
Sent WriteThrough(Connection &connection, const ByteStream &stream, std::span<const uint8_t> bytes);

// Whether sending without waiting may get something out. A byte stream tells by sending only.
bool TakesMore(const Connection &connection);

// True when nothing at all can be said of the socket within the time: neither room nor a failure.
bool StaysFull(int socket, int timeoutMs);

} // namespace rtsptap
