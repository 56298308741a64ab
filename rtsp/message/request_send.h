// Serialises the client's requestMsg and sends it in one send. Application thread; takes the client's sendLock.
#pragma once

#include <cstdint>

namespace rtsptap {

struct RTSPClient;

// 0; RTSP_FAILURE when nothing could be written; RTSP_SEND_FAILED when the socket refused.
int32_t SendRequestMessage(RTSPClient *rtspClient);

} // namespace rtsptap
