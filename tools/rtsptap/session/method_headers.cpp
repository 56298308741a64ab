#include "session/method_headers.h"

#include "base/text.h"

#include <algorithm>
#include <iterator>

namespace tool {
namespace {

constexpr const char *kNames[] = {"OPTIONS", "DESCRIBE", "SETUP", "PLAY", "TEARDOWN"}; // as kSessionMethods

// What the library refuses to send with TEARDOWN. With other methods its refusal comes before any harm is done;
// here it would leave the session in the server.
constexpr const char *kNotWithTeardown[] = {
    "Blocksize",         "Cache-Control", "Conference", "Content-Encoding", "Content-Language", "Expires",
    "If-Modified-Since", "Range",         "Scale",      "Transport"};

bool IsToken(const std::string &name) {
    return !name.empty() && name.find_first_of(" \t\"(),/;<=>?@[]{}\\") == name.npos;
}

bool IsPrintable(const std::string &text) {
    return std::none_of(text.begin(), text.end(),
                        [](unsigned char letter) { return letter < ' ' || letter == 127; });
}

} // namespace

const char *NameOf(RTSPMethod method) {
    const auto *const found = std::find(std::begin(kSessionMethods), std::end(kSessionMethods), method);
    return found == std::end(kSessionMethods) ? "" : kNames[found - std::begin(kSessionMethods)];
}

Outcome AddHeaderOption(const std::string &text, MethodHeaders &headers) {
    const std::size_t colon = text.find(':');
    const std::size_t second = colon == text.npos ? colon : text.find(':', colon + 1);
    if (second == text.npos || !IsPrintable(text)) return {ExitCode::kUsage, "-H is written 'METHOD: Name: value'"};
    const auto *const known = std::find(std::begin(kNames), std::end(kNames), Trimmed(text.substr(0, colon)));
    if (known == std::end(kNames))
        return {ExitCode::kUsage, "-H: the method is one of OPTIONS, DESCRIBE, SETUP, PLAY, TEARDOWN"};
    const Header header{Trimmed(text.substr(colon + 1, second - colon - 1)), Trimmed(text.substr(second + 1))};
    if (!IsToken(header.name)) return {ExitCode::kUsage, "-H: the name of the header is none"};
    const RTSPMethod method = kSessionMethods[known - kNames];
    const auto *const refused = std::find(std::begin(kNotWithTeardown), std::end(kNotWithTeardown), header.name);
    if (method == RTSP_TEARDOWN && refused != std::end(kNotWithTeardown))
        return {ExitCode::kUsage, "-H: TEARDOWN does not take a header " + header.name};
    headers[method].push_back(header);
    return {};
}

} // namespace tool
