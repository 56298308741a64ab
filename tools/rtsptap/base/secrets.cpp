#include "base/secrets.h"

#include "base/text.h"

#include <algorithm>
#include <iterator>

namespace tool {
namespace {

constexpr std::string_view kHidden = "(hidden)";
constexpr std::size_t kLongest = 200; // characters of a server's text

// The name that ends there.
std::string_view NameBefore(std::string_view line, std::size_t colon) {
    const std::string_view before = line.substr(0, colon);
    const std::size_t blank = before.find_last_of(" \t");
    return blank == before.npos ? before : before.substr(blank + 1);
}

bool IsSecretHeader(std::string_view name) {
    constexpr std::string_view kWords[] = {"authorization", "cookie", "token", "password", "secret", "api-key"};
    return std::any_of(std::begin(kWords), std::end(kWords),
                       [name](std::string_view word) { return FindText(name, word) != name.npos; });
}

// Where a secret begins that goes on to the end of the line; npos without one.
std::size_t FindSecret(std::string_view line) {
    constexpr std::string_view kReply = "< ";
    const std::size_t begin = line.starts_with(kReply) ? kReply.size() : 0;
    for (const std::string_view key : {"k=", "a=crypto:", "a=key-mgmt:"}) // RFC 4566, 5.12; RFC 4568; RFC 4567
        if (line.substr(begin).starts_with(key)) return begin + key.size();
    for (std::size_t colon = line.find(':'); colon != line.npos; colon = line.find(':', colon + 1))
        if (IsSecretHeader(NameBefore(line, colon))) return colon + 1;
    return line.npos;
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
    const std::size_t secret = FindSecret(line);
    if (secret == line.npos) return WithoutUserinfo(line);
    return WithoutUserinfo(line.substr(0, secret)) + " " + std::string(kHidden);
}

std::string Presentable(std::string_view text) {
    std::string shown = Printable(WithoutSecrets(text));
    if (shown.size() > kLongest) shown = shown.substr(0, kLongest) + "...";
    return shown;
}

} // namespace tool
