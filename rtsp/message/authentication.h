// Answering a challenge (RFC 2617): what a 401 asks for, and the Authorization value of the requests that follow.
// Application thread.
#pragma once

#include <cstdint>

namespace rtsptap {

struct ResponseMsg;
struct RTSPClient;

// Stores authType, realm and nonce and sets authRequired, so that every further request carries Authorization.
// A response without a challenge changes nothing.
void StoreChallenge(RTSPClient &client, ResponseMsg &response);

struct RTSPClient;

// The header value, released with free(); null when memory is short.
char *GenerateRTSPAuthenticationRequest(RTSPClient *client, const char *uri, uint32_t method);

inline constexpr int kDigestResponseBytes = 512; // room that the host's function may write

// Fills `response` (kDigestResponseBytes, zeroed) with the digest; always 0.
int32_t ClientGenAuthResHeader(RTSPClient *client, char *response, const char *uri, uint32_t method);

} // namespace rtsptap
