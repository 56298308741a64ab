// The three diagnostics printers, as the rest of the library calls them.
// The error and info printers write to standard output; the debug printer prints nothing and, called
// from inside the library, costs nothing. No printer adds a line end: every message carries its own.
// Any thread may print; never while holding a packet queue's lock.
#pragma once

#include "rtsptap.h"

#include <cstdint>

namespace rtsptap {

// The debug printer for callers inside the library. Its arguments document what happens at that place.
[[gnu::format(printf, 2, 3)]] inline void DebugPrint(int /*level*/, const char * /*format*/, ...) {}

inline constexpr int kDebugEntry = 1;

// Handles are printed with %d: one place narrows them.
inline int32_t PrintableHandle(intptr_t handle) { return static_cast<int32_t>(handle); }
inline int32_t PrintableHandle(const void *record) {
    return PrintableHandle(reinterpret_cast<intptr_t>(record));
}

} // namespace rtsptap
