// Small texts: taken apart, put together, and figures as people read them.
#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

std::string Trimmed(std::string_view text); // without the blanks around it

// Without control characters: what a server says of itself does not command the terminal.
std::string Printable(std::string text);

// Letter case ignored.
bool SameText(std::string_view first, std::string_view second);
std::size_t FindText(std::string_view text, std::string_view word); // npos when it is not there

std::vector<std::string> Split(const std::string &text, char separator); // at least one part
std::string Joined(const std::vector<std::string> &parts, const char *separator);

std::string Formatted(const char *format, ...) __attribute__((format(printf, 1, 2))); // as printf does

std::string TimeText(std::chrono::nanoseconds time); // "3600 s", "1.5 s", "200 ms"

std::string ElapsedText(std::chrono::nanoseconds length); // "00:12", "1:00:12", to the nearest second

std::string RateText(double bitsPerSecond); // "64 kbit/s", "1.51 Mbit/s"

} // namespace tool
