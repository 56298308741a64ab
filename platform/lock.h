// Waiting on a condition variable up to a moment of the caller's: the wait of a reader has more than one part.
#pragma once

#include "rtsptap.h"

namespace rtsptap {

inline constexpr uint64_t kConditionWaitMs = 5000; // how long WaitForConditionVar waits

// WaitForConditionVar with its end given, in milliseconds of the monotonic clock (MonotonicMs), which nobody sets.
int WaitForConditionUntil(pthread_cond_t *condition, pthread_mutex_t *mutex, uint64_t deadlineMs);

} // namespace rtsptap
