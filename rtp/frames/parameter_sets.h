// What sequence parameter sets tell of the pictures. Any bytes may be given: reading ends with them.
#pragma once

#include "rtp/frames/assembly.h"

namespace rtsptap {

// The NAL unit without start code (ITU-T H.264, 7.3.2.1.1 and E.1.1; H.265, 7.3.2.2.1 and E.2.1). False, and nothing
// told, when it is cut short before the size of the pictures, or makes no sense.
bool ReadH264Set(Bytes unit, RTSPTapVideoFormat &format);
bool ReadH265Set(Bytes unit, RTSPTapVideoFormat &format);

} // namespace rtsptap
