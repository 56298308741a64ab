// Receiving for a session that has no threads (RTSPTAP_OPTION_THREADS): the program's own calls make the passes
// that those would make, over all sockets of the session at once. They run the services that the threads run. One
// thread at a time calls for such a session.
#pragma once

#include "rtp/interleaved/connection.h"

#include <cstdint>

namespace rtsptap {

struct MediaSession;
struct RTSPStreamInfo;

// A pass: waits up to `timeoutMs`, and no longer than until something is due, then handles what has come. What
// poll(2) says of `beside`, one more socket that is waited for (-1: none).
short ServeSession(MediaSession &session, int timeoutMs, int beside = -1);

// Handles what is there, what has been read already included.
void ServeAll(MediaSession &session);

// Packets of the stream have come back: a full ring may have room again.
void NoteRoom(RTSPStreamInfo &stream);

// In how many ms something is due of which no socket tells; -1: nothing is.
int SessionDueIn(const MediaSession &session);

// ---- Waits of readers: as long as nothing of the stream has been handled, or ended, and nobody calls them off
// ----

void ServeForReader(RTSPStreamInfo &stream, uint64_t deadlineMs);
// A single wait, at most for a slice; the caller looks again.
void ServeForTaker(RTSPStreamInfo &stream, uint64_t deadlineMs);

// ---- Waits of exchanges: meanwhile the session is served, so that nothing is lost while a server is slow ----

// For a socket that no service reads. As poll(2) returns; a signal does not end it.
int ServeUntilReadable(MediaSession &session, int socket, int limitMs);
// For a reply on a connection that is served, within its replyLimitMs and as long as it lives.
RecvBufferPtr ServeUntilReply(MediaSession &session);

} // namespace rtsptap
