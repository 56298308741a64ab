// URLs as text: split into their parts, a reference resolved against what it stands in, and what a server's URL
// says (RFC 3986).
#pragma once

#include "platform/text.h"

#include <cstddef>
#include <cstdint>
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

// Whether both name one host and port, letter by letter but for their case; what names none is on any server.
bool AreOfOneServer(std::string_view a, std::string_view b);
// What `url` names of its server, on the server of another URL. Null when memory is short.
HeapText OnServerOf(std::string_view server, std::string_view url);

// ---- the URL of a server: scheme://[user[:password]@]host[:port][/path][?query] ----

inline constexpr std::size_t kLongestPath = 4096;  // bytes behind its slash
inline constexpr std::size_t kLongestQuery = 4096; // bytes behind its question mark

struct ServerUrl {
    char host[256] = {}; // name or address, decoded; of IPv6 without brackets, its zone behind a '%'
    uint16_t port = 0;
    bool hasUser = false;
    char user[1024] = {};     // decoded
    char password[1024] = {}; // likewise
    HeapText request;         // the URL as a request names it: without user, password and zone, else byte for byte
};

enum class UrlFault { kNone, kUnreadable, kOtherScheme, kNoMemory };

// What is no such URL, or too long, is unreadable; so is one with a fragment, with blanks or control characters, as
// they stand or decoded, or with a '%' that is none of an escape in host, user or password.
UrlFault ReadServerUrl(std::string_view text, std::string_view scheme, uint16_t defaultPort, ServerUrl &url);

} // namespace rtsptap
