// Reads the description in the client's receivedSDP into lines and stream records. Application thread.
#pragma once

#include <cstdint>

namespace rtsptap {

struct RTSPClient;

// 0 on success, also when a malformed attribute ends the reading early; RTSP_FAILURE, RTSP_BAD_NUMBER,
// RTSP_MUTEX_FAILED or RTSP_NO_MEMORY otherwise. Streams made so far stay, whatever the result.
int32_t ParseReceivedSDP(RTSPClient *client);

} // namespace rtsptap
