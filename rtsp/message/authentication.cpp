#include "rtsp/message/authentication.h"

#include "platform/printers.h"
#include "platform/text.h"
#include "rtsp/message/methods.h"
#include "rtsp/message/response.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace rtsptap {

namespace {

// WWW-Authenticate: Digest realm="camera", nonce="b52c", algorithm=MD5
// The scheme ends at a space or comma, every parameter at a comma.
constexpr std::string_view kSchemeEnds = " ,";
constexpr std::string_view kParameterEnds = ",";

// Takes the next token off the front; separators before it are skipped, so none is empty.
// Kept: a comma inside the quotes ends the token too.
bool NextToken(std::string_view &text, std::string_view separators, std::string_view &token) {
    text.remove_prefix(std::min(text.find_first_not_of(separators), text.size()));
    token = text.substr(0, text.find_first_of(separators));
    text.remove_prefix(token.size());
    return !token.empty();
}

// What stands between the quotes: both names have five letters, and with equals sign and quote they make seven
// characters. The last character is the closing quote. Empty when the token is too short for one.
std::string_view QuotedValue(std::string_view token) {
    constexpr std::size_t kOpening = 7;
    constexpr std::size_t kClosing = 1;
    if (token.size() <= kOpening + kClosing) return {};
    return token.substr(kOpening, token.size() - kOpening - kClosing);
}

} // namespace

void StoreChallenge(Authentication &authentication, ResponseMsg &response) {
    const char *const value = GetResponseHeader(&response, "WWW-Authenticate");
    if (value == nullptr) return;
    RtpRtspInfoPrint("WWW_Authenticate: %s\n", value);
    std::string_view rest = value;
    std::string_view token;
    if (!NextToken(rest, kSchemeEnds, token)) return;
    CopyText(authentication.type, token);
    while (NextToken(rest, kParameterEnds, token)) {
        token.remove_prefix(std::min(token.find_first_not_of(' '), token.size()));
        if (token.starts_with("realm"))
            CopyText(authentication.realm, QuotedValue(token));
        else if (token.starts_with("nonce"))
            CopyText(authentication.nonce, QuotedValue(token));
    }
    RtpRtspInfoPrint("Type: %s\n", authentication.type);
    RtpRtspInfoPrint("Realm: %s\n", authentication.realm);
    RtpRtspInfoPrint("Nonce: %s\n", authentication.nonce);
    authentication.required = 1;
}

namespace {

constexpr std::size_t kFixedCharacters = 53; // of the format in GenerateRTSPAuthenticationRequest

} // namespace

char *GenerateRTSPAuthenticationRequest(const Authentication &authentication, const char *uri, uint32_t method) {
    const CallTrace trace(__func__);
    char response[kDigestResponseBytes] = {};
    ClientGenAuthResHeader(authentication, response, uri, method);
    response[kDigestResponseBytes - 1] = '\0'; // the host's function wrote it

    const std::size_t size = std::strlen(authentication.type) + kFixedCharacters +
                             std::strlen(authentication.username) + std::strlen(authentication.realm) +
                             std::strlen(authentication.nonce) + std::strlen(uri) + std::strlen(response) + 1;
    char *const value = static_cast<char *>(std::calloc(size, 1));
    if (value == nullptr) return trace.Fail(value, "EXIT : %s : Memory Allocation Failed for resultStr\n");
    // Kept: the scheme word goes back as it came, with digest parameters behind it whatever it is.
    std::snprintf(value, size, "%s username=\"%s\", realm=\"%s\", nonce=\"%s\", uri=\"%s\", response=\"%s\"",
                  authentication.type, authentication.username, authentication.realm, authentication.nonce, uri,
                  response);
    return value;
}

int32_t ClientGenAuthResHeader(const Authentication &authentication, char *response, const char *uri,
                               uint32_t method) {
    // The host's function may look at these two as the fixed fields that they are.
    char methodName[15] = {};
    const char nonceCount[9] = {};
    CopyText(methodName, MethodName(method));
    // A method without a name enters the digest as an empty text.
    if (methodName[0] == '\0') RtpRtspErrorPrint("Invalid Method\n");
    GenerateDigestResponse(authentication.nonce, nullptr, authentication.username, authentication.realm,
                           authentication.password, "md5", nonceCount, methodName, nullptr, uri, response);
    return RTSP_SUCCESS;
}

} // namespace rtsptap
