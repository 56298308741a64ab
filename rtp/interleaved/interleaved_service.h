// Serving an interleaved connection: frames to their streams, RTCP answered, replies handed over.
// Entered by the thread that PLAY starts on the client's first stream and by readers in their turn; while no thread
// runs, by the method function that waits for the reply to PLAY.
#pragma once

#include "rtp/interleaved/connection.h"

#include <cstdint>

namespace rtsptap {

struct RTSPClient;
struct RTSPStreamInfo;
struct StreamThread;
enum class TurnEnd;

// Thread body: serves all streams of the client until it is told to end or the connection fails.
void ServeInterleavedConnection(StreamThread &thread);

// A reader's turn, in place of waiting for the thread: serves all streams until something of this one has been
// queued or refused, at most until the deadline (MonotonicMs).
TurnEnd ServeAsReader(RTSPStreamInfo &stream, uint64_t deadlineMs);

// The next reply on a connection that no thread serves. Frames before it are delivered, bytes behind it stay
// for the thread. Null with RTSP_RESPONSE_TIMEOUT or RTSP_NO_RESPONSE in `failure`.
RecvBufferPtr ReceiveReplyAmongFrames(RTSPClient &client, int32_t &failure);

} // namespace rtsptap
