// The default GenerateDigestResponse: HTTP digest authentication (RFC 2617, 3.2.2) with MD5.
// An archive of its own, so that the library names no cryptographic library; a program that brings its own
// function does not link this one.
#include "rtsptap_extended.h"

#include <string_view>
#include <strings.h>

namespace {

std::string_view View(const char *text) { return text == nullptr ? std::string_view() : text; }

} // namespace

int GenerateDigestResponse(const char *nonce, const char *cnonce, const char *username, const char *realm,
                           const char *password, const char *algorithm, const char *nonceCount, const char *method,
                           const char *qop, const char *uri, char *response) {
    constexpr uint32_t kMd5Text = 33;
    if (response == nullptr) return RTSP_FAILURE;
    response[0] = '\0';
    const bool useQop = !View(qop).empty() && !View(cnonce).empty();
    if (!View(algorithm).empty() && strcasecmp(algorithm, "md5") != 0) return RTSP_FAILURE;
    if (useQop && View(qop) != "auth") return RTSP_FAILURE; // others digest a body, which is not given here
    const RTSPTapDigest of = {
        sizeof of, "MD5", username, realm, password, nonce, cnonce, nonceCount, useQop ? qop : nullptr,
        method,    uri,   nullptr};
    return RTSPTapComputeDigest(&of, response, kMd5Text) == RTSP_SUCCESS ? RTSP_SUCCESS : RTSP_FAILURE;
}
