#include "base/reply.h"

#include "base/text.h"

#include <algorithm>
#include <charconv>
#include <strings.h>

namespace tool {
namespace {

std::string_view NextLine(std::string_view &text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return line;
}

bool SameText(std::string_view first, std::string_view second) {
    return first.size() == second.size() && strncasecmp(first.data(), second.data(), first.size()) == 0;
}

} // namespace

// RTSP/1.0 404 Not Found
Reply ParseReply(std::string_view text) {
    Reply reply;
    std::string_view line = NextLine(text);
    line.remove_prefix(std::min(line.find(' '), line.size()));
    reply.statusLine = Trimmed(line);
    std::from_chars(reply.statusLine.data(), reply.statusLine.data() + reply.statusLine.size(), reply.status);
    for (line = NextLine(text); !line.empty(); line = NextLine(text)) {
        const std::size_t colon = line.find(':');
        if (colon == line.npos) continue;
        reply.headers.emplace_back(Trimmed(line.substr(0, colon)), Trimmed(line.substr(colon + 1)));
    }
    reply.body = text;
    return reply;
}

std::string HeaderOf(const Reply &reply, std::string_view name) {
    for (const auto &[key, value] : reply.headers)
        if (SameText(key, name)) return value;
    return {};
}

std::vector<std::string> ChallengesOf(const Reply &reply) {
    std::vector<std::string> schemes;
    for (const auto &[name, value] : reply.headers) {
        if (!SameText(name, "WWW-Authenticate")) continue;
        const std::string scheme = value.substr(0, value.find_first_of(" ,"));
        const char *known = SameText(scheme, "basic") ? "Basic" : SameText(scheme, "digest") ? "Digest" : nullptr;
        schemes.push_back(known != nullptr ? known : scheme);
    }
    return schemes;
}

std::optional<std::chrono::seconds> SessionTimeoutOf(const Reply &reply) {
    constexpr std::string_view kTimeout = "timeout=";
    const std::string value = HeaderOf(reply, "Session");
    const auto at = std::search(value.begin(), value.end(), kTimeout.begin(), kTimeout.end(),
                                [](unsigned char a, unsigned char b) { return std::tolower(a) == b; });
    if (at == value.end()) return std::nullopt;
    const char *const digits = value.data() + (at - value.begin()) + kTimeout.size();
    int64_t seconds = 0;
    std::from_chars(digits, value.data() + value.size(), seconds);
    if (seconds <= 0) return std::nullopt;
    return std::chrono::seconds(std::min<int64_t>(seconds, 86400));
}

} // namespace tool
