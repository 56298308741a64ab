#include "base/reply.h"

#include "base/text.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace tool {
namespace {

constexpr std::string_view kBlanks = " \t";

std::string_view NextLine(std::string_view &text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return line;
}

// What stands before any of the letters, taken off the front.
std::string_view TakeUntil(std::string_view &text, std::string_view ends) {
    const std::string_view taken = text.substr(0, text.find_first_of(ends));
    text.remove_prefix(taken.size());
    return taken;
}

// Behind "=": a token, or what is between quotes, backslashes as they are: it is hashed and sent back like that.
std::string TakeValue(std::string_view &text) {
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    if (text.empty() || text.front() != '"') return std::string(TakeUntil(text, " \t,"));
    std::size_t end = 1;
    while (end < text.size() && text[end] != '"') end += text[end] == '\\' ? 2 : 1;
    end = std::min(end, text.size());
    const std::string value(text.substr(1, end - 1));
    text.remove_prefix(std::min(end + 1, text.size()));
    return value;
}

std::string UsualScheme(std::string_view scheme) {
    for (const char *known : {"Basic", "Digest"})
        if (SameText(scheme, known)) return known;
    return std::string(scheme);
}

std::string InLowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return lower;
}

// Digest realm="a, b", nonce="c", Basic realm="d": a word is a parameter where "=" follows, else a scheme.
void AppendChallenges(std::string_view text, std::vector<Challenge> &challenges) {
    const std::size_t before = challenges.size();
    for (;;) {
        text.remove_prefix(std::min(text.find_first_not_of(" \t,"), text.size()));
        if (text.empty()) return;
        const std::string_view word = TakeUntil(text, " \t,=");
        text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
        if (text.empty() || text.front() != '=') {
            challenges.push_back({UsualScheme(word), {}});
            continue;
        }
        text.remove_prefix(1);
        const std::string value = TakeValue(text);
        if (challenges.size() > before) challenges.back().parameters.emplace_back(InLowerCase(word), value);
    }
}

bool IsNamed(std::string_view parameter, std::string_view name) {
    return SameText(parameter.substr(0, parameter.find('=')), name) && parameter.size() > name.size();
}

// "url=rtsp://host/stream=0;seq=12;rtptime=345", parts of which an address may hold as well.
RtpInfo ParseRtpInfo(const std::string &text) {
    RtpInfo entry;
    for (const std::string &part : Split(text, ';')) {
        const std::string parameter = Trimmed(part);
        if (IsNamed(parameter, "url")) entry.url = parameter.substr(4);
        if (!IsNamed(parameter, "rtptime")) continue;
        uint32_t timestamp = 0;
        const char *const digits = parameter.data() + 8;
        const auto [end, error] = std::from_chars(digits, parameter.data() + parameter.size(), timestamp);
        if (error == std::errc() && end != digits) entry.timestamp = timestamp;
    }
    return entry;
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

std::vector<Challenge> ChallengesOf(const Reply &reply) {
    std::vector<Challenge> challenges;
    for (const auto &[name, value] : reply.headers)
        if (SameText(name, "WWW-Authenticate")) AppendChallenges(value, challenges);
    return challenges;
}

std::string ParameterOf(const Challenge &challenge, std::string_view name) {
    for (const auto &[key, value] : challenge.parameters)
        if (key == name) return value;
    return {};
}

// A comma ends an entry only where another one begins.
std::vector<RtpInfo> RtpInfosOf(const Reply &reply) {
    std::vector<std::string> texts;
    for (const auto &[name, value] : reply.headers) {
        if (!SameText(name, "RTP-Info")) continue;
        for (const std::string &part : Split(value, ',')) {
            if (texts.empty() || IsNamed(Trimmed(part), "url"))
                texts.push_back(part);
            else
                texts.back() += "," + part;
        }
    }
    std::vector<RtpInfo> entries;
    for (const std::string &text : texts) entries.push_back(ParseRtpInfo(text));
    return entries;
}

std::optional<std::chrono::seconds> SessionTimeoutOf(const Reply &reply) {
    constexpr std::string_view kTimeout = "timeout=";
    const std::string value = HeaderOf(reply, "Session");
    const std::size_t at = FindText(value, kTimeout);
    if (at == value.npos) return std::nullopt;
    const char *const digits = value.data() + at + kTimeout.size();
    int64_t seconds = 0;
    std::from_chars(digits, value.data() + value.size(), seconds);
    if (seconds <= 0) return std::nullopt;
    return std::chrono::seconds(std::min<int64_t>(seconds, 86400));
}

} // namespace tool
