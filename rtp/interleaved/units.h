// What becomes of the units of an interleaved connection (splitter.h): frames go to their streams, replies to
// whoever waits, requests are answered, and what is none of these is passed over. One loop dispatches and alone
// consumes. Whoever serves the connection.
#pragma once

#include "rtp/interleaved/connection.h"
#include "rtp/interleaved/splitter.h"

namespace rtsptap {

struct MediaSession;

// Handles what lies complete in the reader, up to a first failure of memory, which it tells; false then. Readers
// are signalled once for all of it. With `isFinal` nothing more comes.
bool TakeUnits(MediaSession &session, ReadAhead &reader, ReplyEnd rule, bool isFinal, bool graceIsOver);

} // namespace rtsptap
