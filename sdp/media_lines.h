// The lines of a media section that describe its stream: m, b and the attributes. Application thread.
#pragma once

#include <cstdint>
#include <string_view>

namespace rtsptap {

struct SdpReading;

int32_t ReadMediaLine(SdpReading &reading, char letter, std::string_view value);

} // namespace rtsptap
