// What is done for the RTSP connection while nobody asks anything on it: requests that keep the session alive go
// out, those of the server are answered, and its end is noticed. By a thread that serves a stream anyhow: over TCP
// beside the interleaved service, over UDP that of the first stream which has one. Only for who asked for it.
#pragma once

#include <cstdint>
#include <string_view>

namespace rtsptap {

struct Connection;
struct MediaSession;

// True when the session is to be kept alive, or a rule is on that needs a connection which is read all the time.
bool IsTended(const MediaSession &session);
// True when it is to be kept alive.
bool IsKeptAlive(const MediaSession &session);

// The connection on this socket has ended: no reply comes any more, which is told to the streams, too.
void NoteClosed(MediaSession &session, int32_t socket);
bool IsClosed(const Connection &connection);
// The same, or will be seen so by whoever reads it next: the server has closed it, and nothing is left of what it
// had sent. Any thread.
bool HasEnded(const Connection &connection);

// A request of the session has gone out: the next one that keeps it alive is due so much later.
void NoteRequest(Connection &connection);

// The next one is due at once: the last was refused for a reason that is gone. Whoever serves the connection.
void RepeatKeepAlive(Connection &connection);

// The server has ended the session, which is told to the readers.
void NoteSessionTimedOut(MediaSession &session);

} // namespace rtsptap
