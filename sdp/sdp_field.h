// One line of a session description, and the lists that lines hang in. Application thread only.
#pragma once

#include <string_view>

namespace rtsptap {

struct SDPField {
    char name[2] = {};        // type letter and terminator
    char *value = nullptr;    // owned, free(): the line from its third character on
    SDPField *next = nullptr; // next line of the same list
};

// Frees every line of the list and clears the head.
void ReleaseSdpFields(SDPField *&head);

} // namespace rtsptap
