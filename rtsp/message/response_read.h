// One timed receive of a reply from the RTSP socket. Application thread.
#pragma once

#include <cstdint>

namespace rtsptap {

struct RecvBuffer;
struct RTSPClient;

// What one receive delivered, at most readSize bytes; null on failure, with RTSP_RESPONSE_TIMEOUT in errCode
// after a time-out and errCode untouched otherwise. The caller owns the buffer.
RecvBuffer *ClientReadMessage(RTSPClient *rtspClient, uint32_t readSize, int32_t *errCode);

} // namespace rtsptap
