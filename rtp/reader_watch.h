// One thread for the whole process that looks by the clock whether readers still come: to the turns whose own
// threads rest for them. It wakes a thread whose readers stay away. So nothing is armed, disarmed or timed with a
// packet, and however many streams there are, as long as readers come one thread wakes up for all of them.
#pragma once

#include <cstdint>

namespace rtsptap {

struct ReceiveTurn;

// How long no reader may have come before the thread receives: what comes meanwhile must fit into the socket's
// buffer.
inline constexpr int kRestMs = 4;
inline constexpr int kShortRestMs = 1; // while somebody else waits for what the connection brings

// What the watch remembers of a turn between two looks, guarded by its lock.
struct WatchedTurn {
    ReceiveTurn *next = nullptr;
    ReceiveTurn *prev = nullptr;
    uint32_t visits = 0; // of the turn, then
};

// ---- Its life: as long as somebody needs it. The threads that start and end receive threads ----

// False when its thread cannot be started: it is not needed more often then.
bool NeedReaderWatch();
// The last one waits for its end.
void ReleaseReaderWatch();

// ---- Whoever opens and closes a turn, in it ----

void BeginWatching(ReceiveTurn &turn);
void EndWatching(ReceiveTurn &turn);

// ---- A reader that left a turn whose thread rests ----

void TellReaderLeft();
// Nothing more comes there: the thread is woken at once.
void EndRest(ReceiveTurn &turn);

} // namespace rtsptap
