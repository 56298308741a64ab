// Which headers a user's list may hold, for which methods, and which values are well formed. Constant tables and
// pure checks; application thread.
#pragma once

#include "rtsptap.h"

#include <cstdint>
#include <initializer_list>
#include <string_view>

namespace rtsptap {

// A set of method numbers: bit n stands for method n.
using MethodSet = uint32_t;

constexpr MethodSet Methods(std::initializer_list<RTSPMethod> methods) {
    MethodSet set = 0;
    for (const RTSPMethod method : methods) set |= MethodSet{1} << method;
    return set;
}
constexpr MethodSet AllMethodsExcept(std::initializer_list<RTSPMethod> methods) { return ~Methods(methods); }
constexpr bool Has(MethodSet set, uint32_t method) { return (set >> method & 1) != 0; }

bool IsKnownHeader(std::string_view name);

// True also for every name that has no rule.
bool IsAllowedHeader(std::string_view name, uint32_t method);

// One entry of a list under validation, as its messages name it.
struct CheckedHeader {
    const char *function; // named by every message
    const char *name;
    const char *value; // may be null
    uint32_t method;
};

// True when no rule of this name and method refuses the value; a refusal has printed its line.
bool IsValueAcceptable(const CheckedHeader &header);

// 0 when every header is known or custom, allowed for the method and well formed; RTSP_FAILURE at the first
// that is not. An empty list is acceptable.
int32_t ValidateHeaderList(intptr_t headerList, uint32_t method);

// 0 when each of the `length` bytes is an ASCII digit (or, the second, a letter or digit); RTSP_FAILURE otherwise.
int32_t ValidateNumericString(const char *text, int32_t length);
int32_t ValidateAlphaNumericString(const char *text, int32_t length);

} // namespace rtsptap
