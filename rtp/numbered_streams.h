// Packets of streams that the application names by number. Its threads.
#pragma once

#include "rtsptap.h"

namespace rtsptap {

struct MediaSession;

// Gives back a packet that was taken by the number of its stream, whichever of the session's that is, also of an
// ended one. False when it is not among them.
bool GiveBackWherever(const MediaSession &session, RTPStreamData *packet);

} // namespace rtsptap
