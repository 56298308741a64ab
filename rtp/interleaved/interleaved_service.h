// Serving an interleaved connection: frames to their streams, RTCP answered, replies posted. One service of the
// session, by the thread that PLAY starts on its first stream and by readers of any of its streams; while no thread
// runs, by the method function that waits for the reply to PLAY.
#pragma once

#include "rtp/interleaved/connection.h"

#include <cstdint>

namespace rtsptap {

struct MediaSession;

// Reads what has come, without waiting for it, and handles it; no frames are expected. False when the connection
// has ended. Whoever serves a connection over which none come.
bool ReadConnection(MediaSession &session);

// The next reply on a connection that no thread serves. Frames before it are delivered, bytes behind it stay
// for the thread; without `takesFrames` they have no place. Null with RTSP_RESPONSE_TIMEOUT or RTSP_NO_RESPONSE in
// `failure`.
RecvBufferPtr ReceiveReplyAmongFrames(MediaSession &session, int32_t &failure, bool takesFrames = true);

} // namespace rtsptap
