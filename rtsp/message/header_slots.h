// One header as name and value: an entry of a user's header list, and a slot of a request or response.
// Application thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace rtsptap {

inline constexpr std::size_t kHeaderSlots = 32; // a request or response holds at most this many headers

struct RTSPHeaderStruct {
    uint8_t isCustom = 0;             // list entry: added with the custom flag
    uint8_t isUsed = 0;               // list entry: replaces a default header of the request being built
    char *headerName = nullptr;       // owned, free()
    char *headerValue = nullptr;      // owned, free()
    RTSPHeaderStruct *next = nullptr; // list entry: next in the order added
};

// Frees name and value and leaves the slot empty.
void ReleaseHeaderSlot(RTSPHeaderStruct &slot);

} // namespace rtsptap
