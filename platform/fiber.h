// Code that waits, run without a thread of its own: on a stack of its own it goes as far as it can, and where it
// would wait (waiting.h) it goes back to whoever runs it, to be resumed when there is something to do. One thread
// at a time runs a fiber; it may be another one each time. Freed by FreeFiber.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <poll.h>
#include <span>

namespace rtsptap {

inline constexpr std::size_t kMostAwaited = 16;
inline constexpr uint64_t kNoDeadline = UINT64_MAX;

// What a fiber waits for: any of the sockets, or the deadline.
struct Awaited {
    std::array<pollfd, kMostAwaited> sockets = {};
    std::size_t count = 0;
    uint64_t deadlineMs = 0; // of MonotonicMs; kNoDeadline: none
    uint32_t changes = 0;    // counted up with every wait that begins or ends
};

struct Fiber;

// One that has not run yet; null when memory is short.
Fiber *MakeFiber(void (*body)(void *argument), void *argument);
// It has never run, or has ended.
void FreeFiber(Fiber *fiber);

// Runs it up to its next wait, or to its end: then true.
bool ResumeFiber(Fiber &fiber);

// Looks, without waiting, whether what it waits for has come, or its time is over.
bool IsDue(Fiber &fiber);
const Awaited &AwaitedBy(const Fiber &fiber);

// From here on all its waits are over at once: when it is resumed it goes to its end.
void CallOff(Fiber &fiber);
bool IsCalledOff(const Fiber &fiber);

// The one that runs on this thread just now; null: none does.
Fiber *CurrentFiber();

// On that fiber: notes what is waited for and goes back. As WaitForSockets.
int WaitOnFiber(Fiber &fiber, std::span<pollfd> sockets, int timeoutMs);

} // namespace rtsptap
