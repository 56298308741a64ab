// Everything that can be set of a client by number, one row each: RTSPTapSetOption and its kin find their option
// here. Application thread.
#pragma once

#include "rtsptap_extended.h"

#include <cstdint>
#include <span>

namespace rtsptap {

struct RTSPClient;

// Until when an option may be set; kUntilServed: until something receives for the client.
enum class Settable { kNever, kUntilConnected, kUntilServed, kAlways };

struct Option {
    int32_t number;    // RTSPTapOption
    const char *name;  // in a few words
    const char *unit;  // of the value, or of a text's length
    int64_t lowest;    // of the value, or of a text's length
    int64_t highest;   // the same
    int64_t byDefault; // of a number
    Settable until;
    // Where a number lies; both null for a text.
    int64_t (*get)(const RTSPClient &client);
    void (*set)(RTSPClient &client, int64_t value); // null: it is only told
    // Where a text lies, with room for its terminator.
    std::span<char> (*text)(RTSPClient &client) = nullptr;
    const char *textByDefault = nullptr;
};

std::span<const Option> Options();

} // namespace rtsptap
