// rtsp:// addresses as they are typed, and the host names in them. What they are in requests is the library's.
#pragma once

#include "base/outcome.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace tool {

struct Url {
    std::string user;     // percent-decoded
    std::string password; // percent-decoded
    std::string host;     // name or address; of IPv6 without brackets
    uint16_t port = 554;
    std::string path;            // with its query, as written, without the leading slash
    std::string scheme = "rtsp"; // or rtsps, rtsph, rtspsh; in lower case
};

uint16_t DefaultPort(const Url &url);
bool IsSecure(const Url &url);   // through TLS
bool KeepsToTcp(const Url &url); // datagrams would be in the clear, or not get through

std::string HostAndPort(const Url &url); // "camera.local:554", "[::1]:554"
std::string RequestUrl(const Url &url);  // without user and password

// Takes "SCHEME://[user[:password]@]host[:port][/path]" apart. Its texts never repeat the address: it may hold a
// password.
Outcome ParseUrl(std::string_view text, Url &url);

// No name, so nobody has to be asked.
bool IsAddress(const std::string &host);

// The first address of a name, as text. Asks name servers, which may take long.
Outcome ResolveHost(const std::string &host, std::string &address);

} // namespace tool
