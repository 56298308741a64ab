#include "tests/hostile/reply_rules.h"

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
Verdict AfterDescribe(const Parsed &parsed, const std::string &first, const std::string &more) {
    const std::size_t begin = first.find("v=0");
    std::string description = begin == std::string::npos ? "" : first.substr(begin);
    if (const auto length = parsed.headers.find("Content-Length"); length != parsed.headers.end()) {
        const int number = Number(length->second);
        if (number < 1)
            return {
                RTSP_BAD_NUMBER,
                " :Problem in converting Ascii to Integer value of Content-Length invalid Content Length value\n"};
        if (static_cast<std::size_t>(number) > description.size()) {
            if (more.empty()) return {RTSP_NO_RESPONSE, kNoReply};
            description += more;
        }
    }
    if (NextLine(description).starts_with('v')) return {};
    return {RTSP_BAD_RESPONSE, " : Problem occured while parsing SDP data \n"};
}

Verdict AfterSetup(const Parsed &parsed) {
    const auto session = parsed.headers.find("Session");
    if (session != parsed.headers.end() && SessionIn(session->second).size() > 32)
        return {RTSP_BAD_RESPONSE, " : Too long SessionID received \n"};
    const auto transport = parsed.headers.find("Transport");
    if (transport == parsed.headers.end()) return {};
    const std::size_t ports = transport->second.find("server_port");
    if (ports == std::string::npos) return {};
    const std::size_t dash = transport->second.find('-', ports);
    if (dash != std::string::npos && Number(transport->second.substr(dash + 1)) % 65536 != 0) return {};
    return {RTSP_BAD_NUMBER, " :Problem in converting Ascii to Integer value of server_port\n"};
}

} // namespace

Verdict Judge(const std::string &method, const std::string &bytes) {
    const Verdict unreadable{RTSP_BAD_RESPONSE, " :Problem in parsing Response Message received from server \n"};
    if (bytes.empty()) return {RTSP_NO_RESPONSE, kNoReply};
    const std::string text = bytes.substr(0, kOneReceive);
    const std::optional<Parsed> parsed = Parse(text);
    if (!parsed) return unreadable;
    const bool asksForPassword = method == "OPTIONS" || method == "DESCRIBE";
    if (const auto session = parsed->headers.find("Session"); !asksForPassword && method != "SETUP")
        if (session != parsed->headers.end() && SessionIn(session->second) != "12345678")
            return {RTSP_INVALID_SESSION, " : Invalid Session Id received from server \n"};
    if (parsed->status >= 500) return {RTSP_SERVER_ERROR, " :Server Error Received from Server\n"};
    if (parsed->status == 401 && asksForPassword) return {RTSP_UNAUTHORIZED};
    if (parsed->status >= 400) return {RTSP_CLIENT_ERROR, " :Client Error Received from Server\n"};
    if (parsed->status >= 300) return {RTSP_REDIRECTED, " :Redirectional Error Received from Server\n"};
    if (parsed->status != 200) return {};
    Verdict verdict;
    if (method == "DESCRIBE") verdict = AfterDescribe(*parsed, text, bytes.substr(text.size()));
    if (method == "SETUP") verdict = AfterSetup(*parsed);
    verdict.moves = true;
    return verdict;
}

} // namespace rtsptap::test
