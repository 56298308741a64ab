#include "base/text.h"

#include <cstdio>

namespace tool {

std::string Trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == text.npos) return {};
    return std::string(text.substr(first, text.find_last_not_of(" \t") - first + 1));
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

std::string Formatted(const char *format, double value) {
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

std::string TimeText(std::chrono::nanoseconds time) {
    const auto milliseconds = std::chrono::round<std::chrono::milliseconds>(time).count();
    if (milliseconds < 1000) return std::to_string(milliseconds) + " ms";
    return Formatted(milliseconds < 100000 ? "%.3g s" : "%.0f s", static_cast<double>(milliseconds) / 1000);
}

std::string ElapsedText(std::chrono::nanoseconds length) {
    const auto seconds = std::chrono::round<std::chrono::seconds>(length).count();
    char text[32];
    if (seconds >= 3600)
        std::snprintf(text, sizeof text, "%lld:%02d:%02d", static_cast<long long>(seconds / 3600),
                      static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60));
    else
        std::snprintf(text, sizeof text, "%02d:%02d", static_cast<int>(seconds / 60),
                      static_cast<int>(seconds % 60));
    return text;
}

std::string RateText(double bitsPerSecond) {
    if (bitsPerSecond < 999500) return Formatted("%.0f kbit/s", bitsPerSecond / 1e3);
    return Formatted(bitsPerSecond < 99.95e6 ? "%.2f Mbit/s" : "%.0f Mbit/s", bitsPerSecond / 1e6);
}

} // namespace tool
