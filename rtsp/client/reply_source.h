// Where a reply comes from: the RTSP socket, or the thread that serves an interleaved connection and hands
// replies over in the client's recvData. Application thread, except HandOverReply.
#pragma once

#include "rtp/interleaved/connection.h"
#include "rtsptap.h"

#include <cstdint>

namespace rtsptap {

struct RTSPClient;

// Before a request goes out: forgets a reply that nobody waited for, and lets a paused interleaved thread read.
void BeginAwaiting(RTSPClient &client);
// The exchange is over.
void EndAwaiting(RTSPClient &client);

// The next reply, or null with RTSP_RESPONSE_TIMEOUT or RTSP_NO_RESPONSE in `failure`.
RecvBufferPtr ObtainReply(RTSPClient &client, RTSPMethod method, int32_t &failure);

struct RecvBuffer;
struct RTSPClient;

// What one receive delivered, at most readSize bytes; null on failure, with RTSP_RESPONSE_TIMEOUT in errCode
// after a time-out and errCode untouched otherwise. The caller owns the buffer.
RecvBuffer *ClientReadMessage(RTSPClient *rtspClient, uint32_t readSize, int32_t *errCode);

} // namespace rtsptap
