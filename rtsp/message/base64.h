// Base64 (RFC 4648, 4) inside the library; the encoder is exported, see rtsptap.h.
#pragma once

#include <cstdint>
#include <string_view>

namespace rtsptap {

// Decodes `text`, with its padding or without it, into at most `capacity` bytes.
// The number of bytes, or RTSP_FAILURE: a foreign character, a cut-off group, not enough room.
int32_t Base64DecodeBinaryToBuffer(std::string_view text, uint8_t *buffer, int32_t capacity);

} // namespace rtsptap
