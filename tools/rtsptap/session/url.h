// rtsp:// addresses, and the host names in them.
#pragma once

#include "base/outcome.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace tool {

struct Url {
    std::string user;     // percent-decoded
    std::string password; // percent-decoded
    std::string host;     // name or dotted IPv4 address
    uint16_t port = 554;
    std::string path; // with its query, as written, without the leading slash
};

// Takes "rtsp://[user[:password]@]host[:port][/path]" apart. Its texts never repeat the address: it may hold a
// password.
Outcome ParseUrl(std::string_view text, Url &url);

// The first IPv4 address of a name, as dotted text: the library takes nothing else.
Outcome ResolveHost(const std::string &host, std::string &address);

} // namespace tool
