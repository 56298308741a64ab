// HTTP digest authentication (RFC 7616, 3.4.1; RFC 2617, 3.2.2) on OpenSSL's EVP: RTSPTapComputeDigest, which does
// the whole of it, and the default GenerateDigestResponse on top, each in an archive member of its own. A program
// that brings its own GenerateDigestResponse does not get the other one's.
#include "rtsptap_extended.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <string_view>
#include <strings.h>

namespace {

struct Algorithm {
    const char *name;
    const EVP_MD *(*hash)();
    bool isForSession; // the password enters it once, with the first nonces
};

constexpr Algorithm kAlgorithms[] = {
    {"MD5", EVP_md5, false},
    {"MD5-sess", EVP_md5, true},
    {"SHA-256", EVP_sha256, false},
    {"SHA-256-sess", EVP_sha256, true},
    {"SHA-512-256", EVP_sha512_256, false}, // SHA-512/256 of FIPS 180-4
    {"SHA-512-256-sess", EVP_sha512_256, true},
};

std::string_view View(const char *text) { return text == nullptr ? std::string_view() : text; }

// Null when it is none of them. None given means MD5.
const Algorithm *FindAlgorithm(const char *name) {
    const char *const wanted = View(name).empty() ? "MD5" : name;
    const auto *const row = std::find_if(std::begin(kAlgorithms), std::end(kAlgorithms),
                                         [wanted](const auto &each) { return strcasecmp(each.name, wanted) == 0; });
    return row == std::end(kAlgorithms) ? nullptr : row;
}

struct ContextDeleter {
    void operator()(EVP_MD_CTX *context) const { EVP_MD_CTX_free(context); }
};

struct HexDigest {
    char text[2 * EVP_MAX_MD_SIZE + 1] = {}; // lower case; empty when the digest could not be computed
};

void WriteHex(const unsigned char *bytes, unsigned int count, char *text) {
    constexpr char kDigits[] = "0123456789abcdef";
    for (unsigned int i = 0; i < count; ++i) {
        *text++ = kDigits[bytes[i] >> 4];
        *text++ = kDigits[bytes[i] & 0x0F];
    }
}

// The hash of the texts, joined by colons.
HexDigest HashOfJoined(const Algorithm &algorithm, std::initializer_list<std::string_view> texts) {
    HexDigest digest;
    const std::unique_ptr<EVP_MD_CTX, ContextDeleter> context(EVP_MD_CTX_new());
    bool good = context && EVP_DigestInit_ex(context.get(), algorithm.hash(), nullptr) == 1;
    std::string_view separator;
    for (const std::string_view text : texts) {
        good = good && EVP_DigestUpdate(context.get(), separator.data(), separator.size()) == 1 &&
               EVP_DigestUpdate(context.get(), text.data(), text.size()) == 1;
        separator = ":";
    }
    unsigned char bytes[EVP_MAX_MD_SIZE];
    unsigned int count = 0;
    good = good && EVP_DigestFinal_ex(context.get(), bytes, &count) == 1;
    if (good) WriteHex(bytes, count, digest.text);
    return digest;
}

bool AllComputed(std::initializer_list<std::string_view> digests) {
    return std::none_of(digests.begin(), digests.end(), [](std::string_view digest) { return digest.empty(); });
}

HexDigest Response(const Algorithm &algorithm, const RTSPTapDigest &of) {
    HexDigest user = HashOfJoined(algorithm, {View(of.username), View(of.realm), View(of.password)});
    if (algorithm.isForSession && user.text[0] != '\0')
        user = HashOfJoined(algorithm, {user.text, View(of.nonce), View(of.clientNonce)});
    const bool coversBody = View(of.qop) == "auth-int";
    const HexDigest body = HashOfJoined(algorithm, {View(of.body)});
    const HexDigest request = coversBody ? HashOfJoined(algorithm, {View(of.method), View(of.uri), body.text})
                                         : HashOfJoined(algorithm, {View(of.method), View(of.uri)});
    if (!AllComputed({user.text, body.text, request.text})) return {};
    if (View(of.qop).empty()) return HashOfJoined(algorithm, {user.text, View(of.nonce), request.text});
    return HashOfJoined(algorithm, {user.text, View(of.nonce), View(of.nonceCount), View(of.clientNonce),
                                    View(of.qop), request.text});
}

bool IsQuality(std::string_view qop) { return qop.empty() || qop == "auth" || qop == "auth-int"; }

} // namespace

int RTSPTapComputeDigest(const RTSPTapDigest *digest, char *response, uint32_t size) {
    if (response == nullptr || size == 0) return RTSP_INVALID_ARGUMENT;
    response[0] = '\0';
    RTSPTapDigest of = {};
    if (digest == nullptr || digest->recordSize < sizeof digest->recordSize) return RTSP_INVALID_ARGUMENT;
    std::memcpy(&of, digest, std::min<std::size_t>(digest->recordSize, sizeof of));
    const Algorithm *const algorithm = FindAlgorithm(of.algorithm);
    if (algorithm == nullptr || !IsQuality(View(of.qop))) return RTSPTAP_UNKNOWN_CHALLENGE;
    const HexDigest answer = Response(*algorithm, of);
    const std::size_t length = std::strlen(answer.text);
    if (length == 0) return RTSP_FAILURE; // of OpenSSL: a system may forbid MD5
    if (length >= size) return RTSP_SMALL_BUFFER;
    std::memcpy(response, answer.text, length + 1);
    return RTSP_SUCCESS;
}
