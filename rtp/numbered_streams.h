// Packets of streams that the application names by number. Its threads.
#pragma once

#include "rtsptap.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace rtsptap {

struct MediaSession;
struct RTSPStreamInfo;

// As many as there are and as have room. RTSP_NO_MEMORY when memory is too short for the first. `isOver`: nothing
// is held back any more.
int32_t TakeDeliverable(RTSPStreamInfo &stream, std::span<RTPStreamData *> packets, bool isOver);

// Gives back those of the packets that the stream's reader holds; how many that were.
std::size_t GiveBack(RTSPStreamInfo &stream, std::span<RTPStreamData *const> packets);

// Where a missing packet holds the others back: waits until something comes or it is given up. False when none
// does, or the wait is over.
bool WaitForOrder(RTSPStreamInfo &stream, uint64_t deadlineMs);

// Gives back a packet that was taken by the number of its stream, whichever of the session's that is, also of an
// ended one. False when it is not among them.
bool GiveBackWherever(const MediaSession &session, RTPStreamData *packet);

} // namespace rtsptap
