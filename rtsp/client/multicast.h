// Leaving a stream's unicast RTP socket for a multicast group that the server chose. Application thread.
#pragma once

#include <cstdint>
#include <string_view>

namespace rtsptap {

struct Exchange;

// Takes the group and port from the Transport value of a SETUP reply and joins. The order is fixed: close,
// socket, SO_REUSEADDR, bind, join. The RTCP socket stays as it is.
int32_t JoinMulticast(Exchange &exchange, std::string_view transport);

} // namespace rtsptap
