// The clock of everything that is measured: it never jumps.
#pragma once

#include <chrono>

namespace tool {

using Clock = std::chrono::steady_clock;

} // namespace tool
