#include "base/secrets.h"

#include <algorithm>
#include <cctype>

namespace tool {
namespace {

constexpr std::string_view kHidden = "(hidden)";
constexpr std::size_t kLongest = 200; // characters of a server's text

bool SameLetter(char first, char second) {
    return std::tolower(static_cast<unsigned char>(first)) == std::tolower(static_cast<unsigned char>(second));
}

// Where the value of a header begins whose name ends in "Authorization"; npos without one.
std::size_t FindAuthorization(std::string_view line) {
    constexpr std::string_view kName = "authorization:";
    const auto *const found = std::search(line.begin(), line.end(), kName.begin(), kName.end(), SameLetter);
    return found == line.end() ? line.npos : static_cast<std::size_t>(found - line.begin()) + kName.size();
}

std::string WithoutUserinfo(std::string_view text) {
    constexpr std::string_view kAuthority = "://";
    std::string shown;
    for (std::size_t at = text.find(kAuthority); at != text.npos; at = text.find(kAuthority)) {
        at += kAuthority.size();
        const std::string_view authority = text.substr(at, text.find_first_of("/ \t\r\n\"<>", at) - at);
        const std::size_t sign = authority.rfind('@');
        shown += text.substr(0, at);
        if (sign != text.npos) shown += kHidden;
        text.remove_prefix(sign == text.npos ? at : at + sign);
    }
    return shown += text;
}

} // namespace

std::string WithoutSecrets(std::string_view line) {
    const std::size_t value = FindAuthorization(line);
    if (value == line.npos) return WithoutUserinfo(line);
    return WithoutUserinfo(line.substr(0, value)) + " " + std::string(kHidden);
}

std::string Presentable(std::string_view text) {
    std::string shown = WithoutSecrets(text);
    std::replace_if(
        shown.begin(), shown.end(), [](unsigned char letter) { return std::iscntrl(letter) != 0; }, '?');
    if (shown.size() > kLongest) shown = shown.substr(0, kLongest) + "...";
    return shown;
}

} // namespace tool
