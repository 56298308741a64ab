// URLs as text: split into their parts, and a reference resolved against what it stands in (RFC 3986).
#pragma once

#include "platform/text.h"

#include <string_view>

namespace rtsptap {

// The parts of an URL or of a relative reference, without the characters that set them apart.
struct UrlParts {
    std::string_view scheme; // empty in a relative reference
    std::string_view authority;
    std::string_view path;
    std::string_view query;
    std::string_view fragment;
    bool hasAuthority = false;
    bool hasQuery = false;
    bool hasFragment = false;
};

// Any text is one (RFC 3986, 3).
UrlParts SplitUrl(std::string_view text);

// The URL that `reference` is where `base` is known (RFC 3986, 5.2.2). Null when memory is short.
HeapText JoinUrl(std::string_view base, std::string_view reference);

} // namespace rtsptap
