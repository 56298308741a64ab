// Headers as name and value: the slots of a request or response, and the user's lists with their exported
// operations. Application thread.
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

// The first entry of exactly that name, or null. The handle must not be null.
RTSPHeaderStruct *GetUserAddedHeaderValue(intptr_t headerList, const char *headerName);

inline RTSPHeaderStruct *FirstHeader(intptr_t headerList) {
    return reinterpret_cast<RTSPHeaderStruct *>(headerList);
}
// An empty list is a first node without name or without value.
bool IsEmptyHeaderList(const RTSPHeaderStruct &first);

// ---- Is a list good for a method? (header_rules.cpp) ----

// 0 when every header is known or custom, allowed for the method and well formed; RTSP_FAILURE at the first
// that is not. An empty list is acceptable.
int32_t ValidateHeaderList(intptr_t headerList, uint32_t method);

// 0 when each of the `length` bytes is an ASCII digit (or, the second, a letter or digit); RTSP_FAILURE otherwise.
int32_t ValidateNumericString(const char *text, int32_t length);
int32_t ValidateAlphaNumericString(const char *text, int32_t length);

} // namespace rtsptap
