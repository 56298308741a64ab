#include "tests/hostile/reply_rules.h"

#include "rtsptap.h"

#include <cstdlib>
#include <map>
#include <optional>
#include <strings.h>

namespace rtsptap::test {
namespace {

constexpr std::size_t kOneReceive = 33792;

struct IgnoringCase {
    bool operator()(const std::string &a, const std::string &b) const {
        return strcasecmp(a.c_str(), b.c_str()) < 0;
    }
};

struct Parsed {
    int status = 0;
    std::map<std::string, std::string, IgnoringCase> headers; // the first of each name
};

int Number(const std::string &text) { return static_cast<int>(std::strtol(text.c_str(), nullptr, 10)); }

// The lines of the text, up to its first NUL, without empty ones.
std::string NextLine(std::string &text) {
    text.erase(0, text.find_first_not_of("\r\n"));
    const std::string line = text.substr(0, text.find_first_of("\r\n"));
    text.erase(0, line.size());
    return line;
}

std::optional<Parsed> Parse(std::string text) {
    text = text.c_str();
    const std::string first = NextLine(text);
    const std::size_t space = first.find(' ');
    if (space > 8 || first.find(' ', space + 1) == std::string::npos) return std::nullopt;
    Parsed parsed;
    parsed.status = Number(first.substr(space + 1));
    if (parsed.status == 0) return std::nullopt;
    int slots = 0;
    for (std::string line = NextLine(text); !line.empty() && slots < 32; line = NextLine(text)) {
        const std::size_t colon = line.find(':');
        if (colon == std::string::npos) continue;
        ++slots;
        const std::string name = line.substr(0, colon);
        const std::string value = colon + 2 < line.size() ? line.substr(colon + 2) : "";
        if (name == "CSeq" && Number(value) == 0) return std::nullopt;
        parsed.headers.emplace(name, value);
    }
    return parsed;
}

std::string SessionIn(const std::string &value) {
    const std::size_t begin = value.find_first_not_of(';');
    return begin == std::string::npos ? value : value.substr(begin, value.find(';', begin) - begin);
}

// A description whose lines are good, as far as it came.
int32_t AfterDescribe(const Parsed &parsed, const std::string &first, const std::string &more) {
    const std::size_t begin = first.find("v=0");
    std::string description = begin == std::string::npos ? "" : first.substr(begin);
    if (const auto length = parsed.headers.find("Content-Length"); length != parsed.headers.end()) {
        const int number = Number(length->second);
        if (number < 1) return RTSP_BAD_NUMBER;
        if (static_cast<std::size_t>(number) > description.size()) {
            if (more.empty()) return RTSP_NO_RESPONSE;
            description += more;
        }
    }
    return NextLine(description).starts_with('v') ? RTSP_SUCCESS : RTSP_BAD_RESPONSE;
}

int32_t AfterSetup(const Parsed &parsed) {
    const auto session = parsed.headers.find("Session");
    if (session != parsed.headers.end() && SessionIn(session->second).size() > 32) return RTSP_BAD_RESPONSE;
    const auto transport = parsed.headers.find("Transport");
    if (transport == parsed.headers.end()) return RTSP_SUCCESS;
    const std::size_t ports = transport->second.find("server_port");
    if (ports == std::string::npos) return RTSP_SUCCESS;
    const std::size_t dash = transport->second.find('-', ports);
    const bool isPort = dash != std::string::npos && Number(transport->second.substr(dash + 1)) % 65536 != 0;
    return isPort ? RTSP_SUCCESS : RTSP_BAD_NUMBER;
}

} // namespace

int32_t CodeFor(const std::string &method, const std::string &bytes, bool amongFrames) {
    if (bytes.empty()) return RTSP_NO_RESPONSE;
    const std::string text = amongFrames ? bytes.substr(0, bytes.find('$')) : bytes.substr(0, kOneReceive);
    if (amongFrames && text.size() >= kOneReceive) return RTSP_BAD_RESPONSE; // handed over empty
    const std::optional<Parsed> parsed = Parse(text);
    if (!parsed) return RTSP_BAD_RESPONSE;
    const bool asksForPassword = method == "OPTIONS" || method == "DESCRIBE";
    if (const auto session = parsed->headers.find("Session"); !asksForPassword && method != "SETUP")
        if (session != parsed->headers.end() && SessionIn(session->second) != "12345678")
            return RTSP_INVALID_SESSION;
    if (parsed->status >= 500) return RTSP_SERVER_ERROR;
    if (parsed->status == 401 && asksForPassword) return RTSP_UNAUTHORIZED;
    if (parsed->status >= 400) return RTSP_CLIENT_ERROR;
    if (parsed->status >= 300) return RTSP_REDIRECTED;
    if (parsed->status != 200) return RTSP_SUCCESS;
    if (method == "DESCRIBE") return AfterDescribe(*parsed, text, bytes.substr(text.size()));
    return method == "SETUP" ? AfterSetup(*parsed) : RTSP_SUCCESS;
}

} // namespace rtsptap::test
