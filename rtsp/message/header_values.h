// Well-formed values of the headers in a user's list, method by method. Application thread.
#pragma once

#include <cstdint>

namespace rtsptap {

// One entry of a list under validation, as its messages name it.
struct CheckedHeader {
    const char *function; // named by every message
    const char *name;
    const char *value; // may be null
    uint32_t method;
};

// True when no rule of this name and method refuses the value; a refusal has printed its line.
bool IsValueAcceptable(const CheckedHeader &header);

} // namespace rtsptap
