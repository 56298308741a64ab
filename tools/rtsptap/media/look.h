// What a packet shows of its stream's pictures.
#pragma once

#include "rtsptap_frames.h"

namespace tool {

inline RTSPTapVideoFormat LookInto(int32_t codecType, const RTPStreamData &packet) {
    RTSPTapVideoFormat seen = {};
    seen.recordSize = sizeof seen;
    RTSPTapLookIntoPacket(codecType, &packet, &seen);
    return seen;
}

} // namespace tool
