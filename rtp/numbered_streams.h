// Packets of streams that the application names by number. Its threads.
#pragma once

#include "rtsptap.h"

#include <cstdint>

namespace rtsptap {

struct MediaSession;
struct RTSPStreamInfo;

// Where a missing packet holds the others back: waits until something comes or it is given up. False when none
// does, or the wait is over.
bool WaitForOrder(RTSPStreamInfo &stream, uint64_t deadlineMs);

// Gives back a packet that was taken by the number of its stream, whichever of the session's that is, also of an
// ended one. False when it is not among them.
bool GiveBackWherever(const MediaSession &session, RTPStreamData *packet);

} // namespace rtsptap
