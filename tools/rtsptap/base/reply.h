// The reply of a server, taken apart once for everybody. The library hands replies out whole
// (RTSPClientGetLastReply); of what is in them it tells the status class alone.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tool {

constexpr int kOk = 200;
constexpr int kUnauthorized = 401;
constexpr int kSessionNotFound = 454;
constexpr int kUnsupportedTransport = 461;

struct Reply {
    int status = 0;         // 0: there was no reply
    std::string statusLine; // "404 Not Found"
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body; // as far as it came with the headers
};

Reply ParseReply(std::string_view text);

// The first header of that name, letter case ignored; empty when there is none.
std::string HeaderOf(const Reply &reply, std::string_view name);

// What a reply to PLAY says of one stream (RFC 2326, 12.33).
struct RtpInfo {
    std::string url;
    std::optional<uint32_t> timestamp; // of its first packet
};
std::vector<RtpInfo> RtpInfosOf(const Reply &reply);

// "Session: 12345678;timeout=60"
std::optional<std::chrono::seconds> SessionTimeoutOf(const Reply &reply);

} // namespace tool
