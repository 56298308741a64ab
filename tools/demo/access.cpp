#include "access.h"

#include "rtsptap.h"

#include <map>
#include <sys/random.h>
#include <vector>

namespace demo {
namespace {

constexpr const char *kRealm = "rtsptap demo";

// The value, quoted or not, and the comma behind it.
std::string TakeValue(std::string_view &text) {
    if (!text.starts_with('"')) return std::string(NextPart(text, ','));
    std::string value;
    std::size_t at = 1;
    for (; at < text.size() && text[at] != '"'; ++at) {
        if (text[at] == '\\' && at + 1 < text.size()) ++at;
        value += text[at];
    }
    text.remove_prefix(std::min(at + 1, text.size()));
    NextPart(text, ',');
    return value;
}

std::map<std::string, std::string> ParseDigest(std::string_view header) {
    std::map<std::string, std::string> fields;
    if (!IsSame(NextPart(header, ' '), "Digest")) return fields;
    while (!header.empty()) {
        const std::string name(NextPart(header, '='));
        fields.try_emplace(name, TakeValue(header));
    }
    return fields;
}

} // namespace

Access CheckAccess(const Request &request, const Account &account, const std::string &nonce) {
    std::map<std::string, std::string> fields = ParseDigest(request.Header("Authorization"));
    if (fields["username"] != account.user || fields["realm"] != kRealm || fields["uri"] != request.url)
        return Access::kDenied;
    char expected[33] = {};
    const int result =
        GenerateDigestResponse(fields["nonce"].c_str(), fields["cnonce"].c_str(), account.user.c_str(), kRealm,
                               account.password.c_str(), fields["algorithm"].c_str(), fields["nc"].c_str(),
                               request.method.c_str(), fields["qop"].c_str(), request.url.c_str(), expected);
    if (result != RTSP_SUCCESS || !IsSame(fields["response"], expected)) return Access::kDenied;
    return fields["nonce"] == nonce ? Access::kGranted : Access::kStale;
}

std::string Challenge(const std::string &nonce, bool isStale) {
    return "WWW-Authenticate: Digest realm=\"" + std::string(kRealm) + "\", nonce=\"" + nonce +
           "\", algorithm=MD5" + (isStale ? ", stale=true" : "") + "\r\n";
}

std::string RandomHex(std::size_t bytes) {
    std::vector<uint8_t> random(bytes);
    for (std::size_t have = 0; have < bytes;) {
        const ssize_t count = getrandom(random.data() + have, bytes - have, 0);
        if (count > 0) have += static_cast<std::size_t>(count);
    }
    std::string text;
    for (const uint8_t byte : random)
        for (const int digit : {byte >> 4, byte & 0x0F}) text += "0123456789abcdef"[digit];
    return text;
}

} // namespace demo
