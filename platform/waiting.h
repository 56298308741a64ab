// Where an exchange waits: for sockets, and for time. On a thread this is poll(2) and nanosleep(2), as they are. On
// a fiber (fiber.h) what is waited for is noted and the program goes on; it comes back here when there is something
// to do. Any thread, which may be another one after the wait; nobody holds a lock across it.
#pragma once

#include <cstdint>
#include <poll.h>
#include <span>

namespace rtsptap {

// As poll(2), at most kMostAwaited of fiber.h. On a fiber no signal ends the wait, and where the fiber is to give
// up it is over at once, with 0.
int WaitForSockets(std::span<pollfd> sockets, int timeoutMs);

// As MSecDelay.
void WaitMs(uint32_t ms);

// The program does not wait here: nothing may block.
bool IsOnFiber();

// Nobody wants the outcome any more: whoever tries again and again ends. Only on a fiber.
bool MustGiveUp();

// errno, where a wait may lie between two looks at it: a compiler keeps its place, which is another one once the
// fiber goes on in another thread.
int LastError();
void SetLastError(int error);

} // namespace rtsptap
