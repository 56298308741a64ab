// The process-wide counter of client RTP ports, and binding a pair of sockets by it.
// Application threads; the caller holds gblRTSPClientListLock, so no two clients take the same port.
#pragma once

#include <cstdint>

namespace rtsptap {

struct Exchange;

extern uint16_t gblClientRtspUdpPort; // the last client RTP port handed out; guarded by gblRTSPClientListLock

// Makes and binds the RTP and RTCP sockets of the exchange's stream: to the user's port, or to the next free
// one. 0, or the method's result after its message; a failure leaves no socket.
int32_t OpenUdpPair(Exchange &exchange);

} // namespace rtsptap
