// Answering a challenge (RFC 2617): what a 401 asks for, and the Authorization value of the requests that follow,
// with the host's GenerateDigestResponse. Application thread.
#pragma once

#include <cstdint>

namespace rtsptap {

struct ResponseMsg;

// Who we are, and the last challenge. The client embeds one.
struct Authentication {
    uint32_t required = 0;   // 1 after a 401: every request carries Authorization
    bool isWithheld = false; // we are redirected to another host, which gets no answer to a challenge
    char username[128] = {};
    char password[128] = {};
    char type[128] = {}; // scheme word of the challenge
    char nonce[128] = {};
    char realm[256] = {};
};

// Stores the challenge of a response, so that every further request carries Authorization. One without a challenge
// changes nothing.
void StoreChallenge(Authentication &authentication, ResponseMsg &response);

// The header value, released with free(); null when memory is short.
char *GenerateRTSPAuthenticationRequest(const Authentication &authentication, const char *uri, uint32_t method);

inline constexpr int kDigestResponseBytes = 512; // room that the host's function may write

// Fills `response` (kDigestResponseBytes, zeroed) with the digest; always 0.
int32_t ClientGenAuthResHeader(const Authentication &authentication, char *response, const char *uri,
                               uint32_t method);

} // namespace rtsptap
