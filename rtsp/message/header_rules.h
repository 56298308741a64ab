// The header names that a user's list may use without the custom flag, and the methods that may carry them.
// Constant tables; any thread.
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

} // namespace rtsptap
