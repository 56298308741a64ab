// Where a reply comes from: the RTSP socket, or the thread that serves an interleaved connection and hands
// replies over in the client's recvData. Application thread, except HandOverReply.
#pragma once

#include "rtsp/message/recv_buffer.h"
#include "rtsptap.h"

namespace rtsptap {

struct RTSPClient;

// Before a request goes out: forgets a reply that nobody waited for, and lets a paused interleaved thread read.
void BeginAwaiting(RTSPClient &client);
// The exchange is over.
void EndAwaiting(RTSPClient &client);

// The next reply, or null with RTSP_RESPONSE_TIMEOUT or RTSP_NO_RESPONSE in `failure`.
RecvBufferPtr ObtainReply(RTSPClient &client, RTSPMethod method, int32_t &failure);

} // namespace rtsptap
