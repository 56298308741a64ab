// From the encoding name of an rtpmap attribute to our codec types. Constant data, any thread.
#pragma once

#include <cstdint>
#include <string_view>

namespace rtsptap {

inline constexpr int32_t kNoCodecType = 0;

// RTPCodecType of the first rule that fits the name, or kNoCodecType.
int32_t CodecTypeOf(std::string_view encodingName);

} // namespace rtsptap
