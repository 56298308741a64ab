#include "request.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <strings.h>

namespace demo {
namespace {

constexpr std::size_t kHeadLimit = 8192; // bytes of a request without its body
constexpr long kBodyLimit = 4096;
constexpr std::size_t kFrameHeader = 4;

std::string_view WithoutBlanks(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(" \t\r");
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(" \t\r") + 1 - begin);
}

// Behind the empty line, where lines may end with LF alone; 0 while it has not come.
std::size_t EndOfHead(std::string_view input) {
    for (std::size_t at = input.find('\n'); at != std::string_view::npos; at = input.find('\n', at + 1)) {
        if (input.substr(at + 1, 1) == "\n") return at + 2;
        if (input.substr(at + 1, 2) == "\r\n") return at + 3;
    }
    return 0;
}

bool ParseHead(std::string_view head, Request &request) {
    if (head.find('\0') != std::string_view::npos) return false;
    std::string_view line = NextPart(head, '\n');
    request.method = NextPart(line, ' ');
    request.url = NextPart(line, ' ');
    request.version = line;
    if (!request.version.starts_with("RTSP/") || request.version.find(' ') != std::string::npos) return false;
    while (!head.empty()) {
        std::string_view value = NextPart(head, '\n');
        if (value.empty()) continue;
        if (value.find(':') == std::string_view::npos) return false;
        const std::string_view name = NextPart(value, ':');
        request.headers.emplace_back(name, value);
    }
    return true;
}

Taken TakeFrame(std::string &input) {
    if (input.size() < kFrameHeader) return Taken::kNothing;
    const std::size_t size =
        kFrameHeader + (std::size_t{static_cast<uint8_t>(input[2])} << 8 | static_cast<uint8_t>(input[3]));
    if (input.size() < size) return Taken::kNothing;
    input.erase(0, size);
    return Taken::kFrame;
}

} // namespace

std::string_view Request::Header(std::string_view name) const {
    for (const auto &[own, value] : headers)
        if (IsSame(own, name)) return value;
    return {};
}

Taken TakeNext(std::string &input, Request &request) {
    input.erase(0, input.find_first_not_of("\r\n")); // between requests
    if (input.empty()) return Taken::kNothing;
    if (input[0] == '$') return TakeFrame(input);
    const std::size_t head = EndOfHead(std::string_view(input).substr(0, kHeadLimit));
    if (head == 0) return input.size() < kHeadLimit ? Taken::kNothing : Taken::kTooLong;
    request = {};
    if (!ParseHead(std::string_view(input).substr(0, head), request)) return Taken::kMalformed;
    const std::string_view length = request.Header("Content-Length");
    const long body = length.empty() ? 0 : NumberOf(length, kBodyLimit);
    if (body < 0) return NumberOf(length, INT32_MAX) < 0 ? Taken::kMalformed : Taken::kTooLong;
    request.bodyBytes = static_cast<std::size_t>(body);
    if (input.size() < head + request.bodyBytes) return Taken::kNothing;
    input.erase(0, head + request.bodyBytes);
    return Taken::kRequest;
}

std::string_view NextPart(std::string_view &text, char separator) {
    const std::size_t end = std::min(text.find(separator), text.size());
    const std::string_view part = WithoutBlanks(text.substr(0, end));
    text = WithoutBlanks(text.substr(std::min(end + 1, text.size())));
    return part;
}

bool IsSame(std::string_view left, std::string_view right) {
    return left.size() == right.size() && strncasecmp(left.data(), right.data(), left.size()) == 0;
}

long NumberOf(std::string_view text, long limit) {
    long number = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool good = error == std::errc() && end == text.data() + text.size() && number >= 0 && number <= limit;
    return good ? number : -1;
}

} // namespace demo
