// Frames and replies out of the bytes of an interleaved connection that were read ahead: frames go to their
// streams, RTCP is answered, replies are handed over. Entered by whoever serves the connection, alone.
#pragma once

#include "rtp/interleaved_reply.h"

namespace rtsptap {

enum class Unit { kHandled, kIncomplete, kNoMemory };

// Handles what lies complete in the reader, up to a first failure of memory, which it tells. Readers are signalled
// once for all of it. With `final` nothing more comes.
Unit TakeBufferedUnits(RTSPClient &client, InterleavedReader &reader, ReplyEnd rule, bool final);

} // namespace rtsptap
