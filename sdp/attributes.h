// The attributes of a media section: rtpmap, fmtp, framerate, control. Application thread.
#pragma once

#include <cstdint>
#include <string_view>

namespace rtsptap {

struct SdpReading;

// Reads the value of an "a" line of the current stream; other attributes are passed over.
int32_t ReadAttribute(SdpReading &reading, std::string_view value);

} // namespace rtsptap
