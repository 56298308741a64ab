// The raw reply of a server, for what the library does not hand out: status line and headers.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

constexpr int kOk = 200;
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

// The authentication schemes of all challenges, in their order: "Digest", "Basic".
std::vector<std::string> ChallengesOf(const Reply &reply);

// "Session: 12345678;timeout=60"
std::optional<std::chrono::seconds> SessionTimeoutOf(const Reply &reply);

} // namespace tool
