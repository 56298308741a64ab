// Method numbers and their names on the wire.
#pragma once

#include "rtsptap.h"

#include <array>

namespace rtsptap {

inline constexpr uint32_t kMethodNumbers = 9; // numbers 0 to 8 are accepted where a method is checked

// The name of a method, or an empty text for a number that has none.
constexpr const char *MethodName(uint32_t method) {
    constexpr std::array<const char *, kMethodNumbers> names = {
        "OPTIONS", "DESCRIBE", "SETUP", "PLAY", "TEARDOWN", "PAUSE", "", "GET_PARAMETER", ""};
    return method < names.size() ? names[method] : "";
}

// True for the methods whose URI can be that of one stream; the others mean the whole session.
constexpr bool AddressesStream(uint32_t method) {
    return method == RTSP_SETUP || method == RTSP_PLAY || method == RTSP_PAUSE;
}

} // namespace rtsptap
