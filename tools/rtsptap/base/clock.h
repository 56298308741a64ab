// The clock of everything that is measured: it never jumps.
#pragma once

#include <chrono>

namespace tool {

using Clock = std::chrono::steady_clock;

// What makes of the time since the clock's beginning the time since 1970.
inline std::chrono::nanoseconds WallClockOffset() {
    return std::chrono::system_clock::now().time_since_epoch() - Clock::now().time_since_epoch();
}

} // namespace tool
