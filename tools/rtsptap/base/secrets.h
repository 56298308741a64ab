// Keeps credentials, and what could harm a terminal, out of what is shown.
#pragma once

#include <string>
#include <string_view>

namespace tool {

// A line, without its end, and without the values of headers that carry secrets (Authorization of any kind, Cookie,
// X-Auth-Token), without user names and passwords in URLs, and without the keys of descriptions.
std::string WithoutSecrets(std::string_view line);

// What a server said, fit for a line of ours: no control characters, no secrets, not endless.
std::string Presentable(std::string_view text);

} // namespace tool
