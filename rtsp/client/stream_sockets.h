// A stream's local sockets over UDP. Application thread.
#pragma once

#include <cstdint>
#include <string_view>

namespace rtsptap {

struct Exchange;

extern uint16_t gblClientRtspUdpPort; // the last client RTP port handed out; guarded by gblRTSPClientListLock

// Makes and binds the RTP and RTCP sockets of the exchange's stream: to the user's port, or to the next free
// one. 0, or the method's result after its message; a failure leaves no socket.
int32_t OpenUdpPair(Exchange &exchange);

struct Exchange;

// Takes the group and port from the Transport value of a SETUP reply and joins. The order is fixed: close,
// socket, SO_REUSEADDR, bind, join. The RTCP socket stays as it is.
int32_t JoinMulticast(Exchange &exchange, std::string_view transport);

} // namespace rtsptap
