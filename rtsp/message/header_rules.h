// Which headers a user's list may hold, for which methods, and which values are well formed: one table of the
// headers that need no custom flag. Application thread.
#pragma once

#include <cstdint>

namespace rtsptap {

// 0 when every header is known or custom, allowed for the method and well formed; RTSP_FAILURE at the first
// that is not. An empty list is acceptable.
int32_t ValidateHeaderList(intptr_t headerList, uint32_t method);

// 0 when each of the `length` bytes is an ASCII digit (or, the second, a letter or digit); RTSP_FAILURE otherwise.
int32_t ValidateNumericString(const char *text, int32_t length);
int32_t ValidateAlphaNumericString(const char *text, int32_t length);

} // namespace rtsptap
