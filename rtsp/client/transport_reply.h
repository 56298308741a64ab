// What a SETUP reply says of the session and the transport (RFC 2326, 12.37 and 12.39). Application thread.
#pragma once

#include <cstdint>

namespace rtsptap {

struct Exchange;

// Keeps the session identifier; a reply without one leaves that of an earlier stream.
int32_t TakeSession(Exchange &exchange);

// Multicast group, server port, interleaved channel, in this order, as far as the Transport value has them.
int32_t ApplyTransport(Exchange &exchange);

} // namespace rtsptap
