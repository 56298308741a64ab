#include "platform/waiting.h"

#include "platform/fiber.h"
#include "platform/system.h"

#include <cerrno>

namespace rtsptap {

int WaitForSockets(std::span<pollfd> sockets, int timeoutMs) {
    Fiber *const fiber = timeoutMs != 0 ? CurrentFiber() : nullptr;
    if (fiber != nullptr) return WaitOnFiber(*fiber, sockets, timeoutMs);
    return poll(sockets.data(), sockets.size(), timeoutMs);
}

void WaitMs(uint32_t ms) {
    Fiber *const fiber = CurrentFiber();
    if (fiber == nullptr)
        MSecDelay(ms);
    else
        WaitOnFiber(*fiber, {}, static_cast<int>(ms));
}

bool IsOnFiber() { return CurrentFiber() != nullptr; }

bool MustGiveUp() {
    const Fiber *const fiber = CurrentFiber();
    return fiber != nullptr && IsCalledOff(*fiber);
}

[[gnu::noinline]] int LastError() { return errno; }

[[gnu::noinline]] void SetLastError(int error) { errno = error; }

} // namespace rtsptap
