// The default GenerateDigestResponse: HTTP digest authentication (RFC 2617, 3.2.2) with MD5, on OpenSSL's EVP.
// An archive of its own, so that the library names no cryptographic library; a program that brings its own
// function does not link this one.
#include "rtsptap.h"

#include <openssl/evp.h>

#include <cstring>
#include <initializer_list>
#include <memory>
#include <string_view>
#include <strings.h>

namespace {

constexpr std::size_t kMd5Bytes = 16;

struct ContextDeleter {
    void operator()(EVP_MD_CTX *context) const { EVP_MD_CTX_free(context); }
};

struct HexDigest {
    char text[2 * kMd5Bytes + 1] = {}; // lower case; empty when the digest could not be computed
};

std::string_view View(const char *text) { return text == nullptr ? std::string_view() : text; }

void WriteHex(const unsigned char (&bytes)[kMd5Bytes], char *text) {
    constexpr char kDigits[] = "0123456789abcdef";
    for (const unsigned char byte : bytes) {
        *text++ = kDigits[byte >> 4];
        *text++ = kDigits[byte & 0x0F];
    }
}

// MD5 over the texts, joined by colons.
HexDigest Md5OfJoined(std::initializer_list<std::string_view> texts) {
    HexDigest digest;
    const std::unique_ptr<EVP_MD_CTX, ContextDeleter> context(EVP_MD_CTX_new());
    bool good = context && EVP_DigestInit_ex(context.get(), EVP_md5(), nullptr) == 1;
    std::string_view separator;
    for (const std::string_view text : texts) {
        good = good && EVP_DigestUpdate(context.get(), separator.data(), separator.size()) == 1 &&
               EVP_DigestUpdate(context.get(), text.data(), text.size()) == 1;
        separator = ":";
    }
    unsigned char bytes[kMd5Bytes];
    good = good && EVP_DigestFinal_ex(context.get(), bytes, nullptr) == 1;
    if (good) WriteHex(bytes, digest.text);
    return digest;
}

} // namespace

int GenerateDigestResponse(const char *nonce, const char *cnonce, const char *username, const char *realm,
                           const char *password, const char *algorithm, const char *nonceCount, const char *method,
                           const char *qop, const char *uri, char *response) {
    if (response == nullptr) return RTSP_FAILURE;
    response[0] = '\0';
    const bool useQop = !View(qop).empty() && !View(cnonce).empty();
    if (!View(algorithm).empty() && strcasecmp(algorithm, "md5") != 0) return RTSP_FAILURE;
    if (useQop && View(qop) != "auth") return RTSP_FAILURE; // others digest a body, which is not given here

    const HexDigest user = Md5OfJoined({View(username), View(realm), View(password)});
    const HexDigest request = Md5OfJoined({View(method), View(uri)});
    const HexDigest answer =
        useQop ? Md5OfJoined({user.text, View(nonce), View(nonceCount), View(cnonce), View(qop), request.text})
               : Md5OfJoined({user.text, View(nonce), request.text});
    if (user.text[0] == '\0' || request.text[0] == '\0' || answer.text[0] == '\0') return RTSP_FAILURE;
    std::memcpy(response, answer.text, sizeof answer.text);
    return RTSP_SUCCESS;
}
