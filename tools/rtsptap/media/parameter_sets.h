// What sequence parameter sets tell of the pictures.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace tool {

struct PictureFormat {
    std::string profile; // "High"; "profile 44" when it has no known name
    std::string level;   // "3.1"
    uint32_t width = 0;  // of what is shown, after cropping
    uint32_t height = 0;
};

// The NAL unit without start code (ITU-T H.264, 7.3.2.1.1; H.265, 7.3.2.2). None when it is cut short or makes no
// sense.
std::optional<PictureFormat> ParseH264Set(std::span<const uint8_t> nalUnit);
std::optional<PictureFormat> ParseH265Set(std::span<const uint8_t> nalUnit);

} // namespace tool
