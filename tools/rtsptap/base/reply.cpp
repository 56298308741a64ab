#include "base/reply.h"

#include "base/text.h"

#include <algorithm>
#include <charconv>

namespace tool {
namespace {

std::string_view NextLine(std::string_view &text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return line;
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
