#include "session/url.h"

#include "base/text.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <iterator>
#include <memory>
#include <netdb.h>

namespace tool {
namespace {

struct Scheme {
    std::string_view name;
    uint16_t port;
    bool isSecure;
};

constexpr Scheme kSchemes[] = {
    {"rtsp", 554, false}, {"rtsps", 322, true}, {"rtsph", 80, false}, {"rtspsh", 443, true}};

const Scheme *FindScheme(std::string_view name) {
    const auto *const found = std::find_if(std::begin(kSchemes), std::end(kSchemes),
                                           [name](const Scheme &scheme) { return SameText(name, scheme.name); });
    return found != std::end(kSchemes) ? found : nullptr;
}

Outcome Refuse(const std::string &why) { return {ExitCode::kUsage, "URL: " + why}; }

int HexDigit(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return -1;
}

bool PercentDecode(std::string_view text, std::string &decoded) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            decoded += text[i];
            continue;
        }
        const int high = i + 2 < text.size() ? HexDigit(text[i + 1]) : -1;
        const int low = i + 2 < text.size() ? HexDigit(text[i + 2]) : -1;
        if (high < 0 || low < 0 || high + low == 0) return false;
        decoded += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return true;
}

Outcome ParseCredentials(std::string_view text, Url &url) {
    const std::size_t colon = text.find(':');
    const std::string_view password = colon == std::string_view::npos ? "" : text.substr(colon + 1);
    if (!PercentDecode(text.substr(0, colon), url.user) || !PercentDecode(password, url.password))
        return Refuse("a % in user name or password needs two hexadecimal digits after it");
    return {};
}

Outcome ParseAuthority(std::string_view text, Url &url) {
    const bool isBracketed = text.starts_with('[');
    const std::size_t bracket = isBracketed ? text.find(']') : 0;
    if (bracket == text.npos) return Refuse("the ] of the IPv6 address is missing");
    const std::size_t colon = text.find(':', bracket);
    url.host = isBracketed ? text.substr(1, bracket - 1) : text.substr(0, colon);
    if (isBracketed && colon != bracket + 1 && bracket + 1 != text.size())
        return Refuse("behind the ] comes the port");
    if (url.host.empty()) return Refuse("the host is missing");
    if (colon == std::string_view::npos) return {};
    const std::string_view port = text.substr(colon + 1);
    const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), url.port);
    if (error != std::errc() || end != port.data() + port.size() || url.port == 0)
        return Refuse("the port is not a number from 1 to 65535");
    return {};
}

} // namespace

Outcome ParseUrl(std::string_view text, Url &url) {
    url = {};
    const auto separates = [](unsigned char letter) { return letter <= ' ' || letter == 0x7F; };
    if (std::any_of(text.begin(), text.end(), separates)) return Refuse("a space is written %20");
    constexpr std::string_view kMark = "://";
    const std::string_view name = text.substr(0, text.find(kMark));
    const Scheme *const scheme = name.size() < text.size() ? FindScheme(name) : nullptr;
    if (scheme == nullptr) return Refuse("it must begin with rtsp:// or rtsps://");
    url.scheme = scheme->name;
    url.port = scheme->port;
    text.remove_prefix(name.size() + kMark.size());
    std::string_view authority = text.substr(0, text.find_first_of("/?"));
    text.remove_prefix(authority.size());
    if (!text.empty()) url.path = text.substr(text.front() == '/' ? 1 : 0);
    const std::size_t at = authority.rfind('@');
    if (at != std::string_view::npos) {
        if (Outcome refused = ParseCredentials(authority.substr(0, at), url); !refused.IsOk()) return refused;
        authority.remove_prefix(at + 1);
    }
    return ParseAuthority(authority, url);
}

std::string HostAndPort(const Url &url) {
    const bool isV6 = url.host.find(':') != url.host.npos;
    return (isV6 ? "[" + url.host + "]" : url.host) + ":" + std::to_string(url.port);
}

std::string RequestUrl(const Url &url) { return url.scheme + "://" + HostAndPort(url) + "/" + url.path; }

uint16_t DefaultPort(const Url &url) { return FindScheme(url.scheme)->port; }

bool IsSecure(const Url &url) { return FindScheme(url.scheme)->isSecure; }

bool KeepsToTcp(const Url &url) { return url.scheme != kSchemes[0].name; }

bool IsAddress(const std::string &host) {
    addrinfo hints = {};
    hints.ai_flags = AI_NUMERICHOST;
    addrinfo *found = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0) return false;
    freeaddrinfo(found);
    return true;
}

Outcome ResolveHost(const std::string &host, std::string &address) {
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    if (const int error = getaddrinfo(host.c_str(), nullptr, &hints, &found); error != 0)
        return {ExitCode::kNameNotResolved, host + ": " + gai_strerror(error)};
    const std::unique_ptr<addrinfo, void (*)(addrinfo *)> owner(found, freeaddrinfo);
    char text[NI_MAXHOST] = {};
    if (getnameinfo(found->ai_addr, found->ai_addrlen, text, sizeof text, nullptr, 0, NI_NUMERICHOST) != 0)
        return {ExitCode::kNameNotResolved, host + ": has no address"};
    address = text;
    return {};
}

} // namespace tool
