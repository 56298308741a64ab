// Builds a request: URI, CSeq, default headers, user headers, in their fixed order. Application thread.
#pragma once

#include <cstdint>

namespace rtsptap {

struct RTSPClient;
struct RequestMsg;

// streamCount is the 0-based stream addressed, negative for the whole session. userList may be null.
// Null when the arguments are bad, memory is short or the method is not implemented.
RequestMsg *GenerateRequestMessage(RTSPClient *rtspClient, uint32_t method, intptr_t userList, int32_t streamCount);

} // namespace rtsptap
