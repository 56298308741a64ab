// The methods, one row each: number, name on the wire, what it addresses, the state that its success leads to, and
// the headers that its request carries unasked. Constant data, any thread.
#pragma once

#include "rtsptap.h"

#include <cstdint>
#include <span>

namespace rtsptap {

inline constexpr auto kSetParameter = static_cast<RTSPMethod>(6); // no number of the base interface
inline constexpr uint32_t kMethodNumbers = 9; // numbers 0 to 8 are accepted where a method is checked

// What is printed when a header cannot be added; the second argument is always "User-Agent".
struct NotAddedTexts {
    const char *userGiven;
    const char *byDefault;
};

// A header that a request carries unasked. An entry of that name in the user's list replaces its value.
struct DefaultHeader {
    const char *name;
    const char *value; // kSessionId: the client's session id as it stands, also when empty
    const NotAddedTexts &texts;
    bool laterStreamsOnly = false; // by default left out of the first stream's request
    bool onlyWithValue = false;    // by default left out while its value is empty
};

inline constexpr const char *kSessionId = nullptr;

extern const NotAddedTexts kUserAgentTexts; // of every method
extern const NotAddedTexts kAuthorizationTexts;

inline constexpr auto kStays = static_cast<RTSPClientState>(7); // no state: success changes none

struct Method {
    uint32_t number;      // RTSPMethod
    const char *name;     // on the wire
    bool addressesStream; // its URI can be that of one stream; the others mean the whole session
    RTSPClientState reached;
    std::span<const DefaultHeader> headers; // in their order
};

// Null for a number that has no row: no request can be made of it.
const Method *FindMethod(uint32_t number);

// The name of a method, or an empty text for a number that has none.
const char *MethodName(uint32_t number);

} // namespace rtsptap
