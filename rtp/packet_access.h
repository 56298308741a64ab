// The application's side of the packet queues: take, look, give back. The exported functions live in the
// source file; what they share with the figures is here. Application threads, one reader per stream.
#pragma once

#include "platform/call_trace.h"

#include <cstdint>

namespace rtsptap {

struct RTSPClient;

// The client of a call that names a stream by codec type, or null after the failure line was printed.
// `packetGiven` is false when the packet to free is null, which is checked before the handle.
RTSPClient *CheckPacketCall(const CallTrace &trace, intptr_t clientHandle, int32_t codecType, bool packetGiven = true);

} // namespace rtsptap
