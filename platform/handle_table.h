// Which addresses are live clients': a set that any thread may ask at any time, without a lock and without writing
// anything that another thread reads. Handles are checked with every packet, so a lock, however shared, would be
// the one cache line that all readers of all clients fight for, and readers that never let go of it would keep
// Create and Destroy waiting for ever. An address is compared and never followed: a handle may be anything.
//
// Open addressing with linear probing. Clients are added and removed by one thread at a time; meanwhile others ask.
// What makes their answers right:
//
//   - Between the slot where the search for a live client begins and the slot where it lies, no slot is empty: it
//     would have been taken for the client. None becomes empty while the client lives: a removed client leaves a
//     mark, which is cleared only where the slot behind it is empty, so that no search passes there. A client never
//     moves. So a search for a live client ends at its slot, whatever is added and removed around it.
//   - A table that gets full is replaced by a copy twice its size. Searches under way end in the one they began in,
//     which nobody changes any more and which still holds whom they may ask for: their clients live, since Destroy
//     is the only call on its client. Who asks after Destroy has returned finds the table that Destroy changed or a
//     later one.
//   - Outgrown tables stay, since a search may be in any of them. Together they are smaller than the one in use, at
//     most 32 bytes for each of the most clients that ever lived at once.
#pragma once

#include <cstdint>

namespace rtsptap {

// True when the address was added and not removed. Any thread.
bool IsLiveHandle(intptr_t handle);

// ---- One thread at a time ----

// False when memory is short; nothing has changed then. The handle is not in the table yet, and neither 0 nor 1.
bool AddHandle(intptr_t handle);
// False when it is not in the table.
bool RemoveHandle(intptr_t handle);

} // namespace rtsptap
