// The Transport header of a SETUP request (RFC 2326, 12.39): the user's, or ours. Application thread.
#pragma once

#include <cstdint>

namespace rtsptap {

struct Exchange;

// Looks for a Transport header in the user's list, checks it for the client's protocol and takes its client port.
int32_t TakeUserTransport(Exchange &exchange);

// Opens the stream's sockets (UDP) and adds the header, all under gblRTSPClientListLock.
int32_t PrepareTransport(Exchange &exchange);

} // namespace rtsptap
