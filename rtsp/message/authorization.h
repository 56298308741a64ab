// The Authorization value of a request after a 401 (RFC 2617), with the host's GenerateDigestResponse.
#pragma once

#include <cstdint>

namespace rtsptap {

struct RTSPClient;

// The header value, released with free(); null when memory is short.
char *GenerateRTSPAuthenticationRequest(RTSPClient *client, const char *uri, uint32_t method);

inline constexpr int kDigestResponseBytes = 512; // room that the host's function may write

// Fills `response` (kDigestResponseBytes, zeroed) with the digest; always 0.
int32_t ClientGenAuthResHeader(RTSPClient *client, char *response, const char *uri, uint32_t method);

} // namespace rtsptap
