// The clock for waiting, which nobody sets. The wall clock is exported: GetTimeValue.
#pragma once

#include <cstdint>
#include <ctime>

namespace rtsptap {

inline uint64_t MonotonicMs() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

} // namespace rtsptap
