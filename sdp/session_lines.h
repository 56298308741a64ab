// The lines before the first media section that say something we act on: o, c and t.
// A description of another network than IPv4 is refused here. Application thread.
#pragma once

#include <cstdint>
#include <string_view>

namespace rtsptap {

struct SdpReading;

int32_t ReadSessionLine(SdpReading &reading, char letter, std::string_view value);

} // namespace rtsptap
