#include "rtsp/message/header_slots.h"

#include <cstdlib>
#include <utility>

namespace rtsptap {

void ReleaseHeaderSlot(RTSPHeaderStruct &slot) {
    std::free(std::exchange(slot.headerName, nullptr));
    std::free(std::exchange(slot.headerValue, nullptr));
}

} // namespace rtsptap
