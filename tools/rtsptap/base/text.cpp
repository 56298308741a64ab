#include "base/text.h"

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <strings.h>

namespace tool {

std::string Trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == text.npos) return {};
    return std::string(text.substr(first, text.find_last_not_of(" \t") - first + 1));
}

std::string Printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](unsigned char letter) { return letter < ' ' || letter == 0x7F; }, '?');
    return text;
}

bool SameText(std::string_view first, std::string_view second) {
    return first.size() == second.size() && strncasecmp(first.data(), second.data(), first.size()) == 0;
}

std::size_t FindText(std::string_view text, std::string_view word) {
    for (std::size_t at = 0; at + word.size() <= text.size(); ++at)
        if (SameText(text.substr(at, word.size()), word)) return at;
    return text.npos;
}

std::vector<std::string> Split(const std::string &text, char separator) {
    std::vector<std::string> parts;
    std::size_t begin = 0;
    for (std::size_t end = 0; end != std::string::npos; begin = end + 1) {
        end = text.find(separator, begin);
        parts.push_back(text.substr(begin, end == std::string::npos ? end : end - begin));
    }
    return parts;
}

std::string Joined(const std::vector<std::string> &parts, const char *separator) {
    std::string text;
    for (const std::string &part : parts) text += (text.empty() ? "" : separator) + part;
    return text;
}

std::string Formatted(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char *text = nullptr;
    const int length = vasprintf(&text, format, arguments);
    va_end(arguments);
    if (length < 0) throw std::bad_alloc();
    const std::unique_ptr<char, void (*)(void *)> owner(text, std::free);
    return {text, static_cast<std::size_t>(length)};
}

std::string TimeText(std::chrono::nanoseconds time) {
    const auto milliseconds = std::chrono::round<std::chrono::milliseconds>(time).count();
    if (milliseconds < 1000) return std::to_string(milliseconds) + " ms";
    return Formatted(milliseconds < 100000 ? "%.3g s" : "%.0f s", static_cast<double>(milliseconds) / 1000);
}

std::string ElapsedText(std::chrono::nanoseconds length) {
    const auto seconds = static_cast<int64_t>(std::chrono::round<std::chrono::seconds>(length).count());
    const int64_t minutes = seconds / 60;
    if (minutes < 60) return Formatted("%02" PRId64 ":%02" PRId64, minutes, seconds % 60);
    return Formatted("%" PRId64 ":%02" PRId64 ":%02" PRId64, minutes / 60, minutes % 60, seconds % 60);
}

std::string RateText(double bitsPerSecond) {
    if (bitsPerSecond < 999500) return Formatted("%.0f kbit/s", bitsPerSecond / 1e3);
    return Formatted(bitsPerSecond < 99.95e6 ? "%.2f Mbit/s" : "%.0f Mbit/s", bitsPerSecond / 1e6);
}

} // namespace tool
