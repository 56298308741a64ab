// The wall clock, and sleeping.
#include "platform/archive_names.h"
#include "rtsptap.h"

#include <ctime>

uint64_t GetTimeValue(void) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

int GetPresentTimeInSec(uint32_t *seconds, uint32_t *microseconds) {
    timespec now{};
    if (clock_gettime(CLOCK_REALTIME, &now) != 0) return RTSP_FAILURE;
    if (seconds != nullptr) *seconds = static_cast<uint32_t>(now.tv_sec);
    if (microseconds != nullptr) *microseconds = static_cast<uint32_t>(now.tv_nsec / 1000);
    return RTSP_SUCCESS;
}

int MSecDelay(uint32_t milliseconds) {
    const timespec delay{static_cast<time_t>(milliseconds / 1000),
                         static_cast<long>(milliseconds % 1000) * 1000000};
    return nanosleep(&delay, nullptr);
}

RTSPTAP_WEAK_NAME(GetTimeValue)
RTSPTAP_WEAK_NAME(GetPresentTimeInSec)
RTSPTAP_WEAK_NAME(MSecDelay)
