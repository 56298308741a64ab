// Looks by the clock whether readers still come: to the turns whose own threads rest for them. A thread whose readers
// stay away is woken. Nothing is armed, disarmed or timed with a packet: from time to time a reader that leaves its
// turn looks at all of them, however many there are, and sets the alarm of the one thread of the process that looks
// when no reader comes by.
#pragma once

#include <cstdint>

namespace rtsptap {

struct ReceiveTurn;

// How long no reader may have come before the thread receives: what comes meanwhile must fit into the socket's
// buffer, and nobody is to wait 10 ms for it.
inline constexpr int kRestMs = 4;
inline constexpr int kLongRestMs = 8;  // where little comes: about a visit of a reader in a ms, or less
inline constexpr int kShortRestMs = 1; // while somebody else waits for what the connection brings

// ---- Its life: as long as somebody needs it. The threads that start and end receive threads ----

// Before a turn is opened. False, with errno, when memory or descriptors are short or its thread cannot be started: it
// is not needed more often then.
bool NeedReaderWatch();
// When the turn is closed. The last one waits for its end.
void ReleaseReaderWatch();

// ---- Whoever opens and closes a turn, in it ----

void BeginWatching(ReceiveTurn &turn);
void EndWatching(ReceiveTurn &turn);

// ---- A reader that left a turn whose thread rests ----

void TellReaderLeft(uint64_t nowMs); // MonotonicMs
// Nothing more comes there: the thread is woken at once.
void EndRest(ReceiveTurn &turn);

} // namespace rtsptap
