#include "rtsp/message/authorization.h"

#include "platform/call_trace.h"
#include "platform/text.h"
#include "rtsp/client/client_record.h"
#include "rtsp/message/method_names.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace rtsptap {

namespace {

constexpr std::size_t kFixedCharacters = 53; // of the format in GenerateRTSPAuthenticationRequest

} // namespace

char *GenerateRTSPAuthenticationRequest(RTSPClient *client, const char *uri, uint32_t method) {
    const CallTrace trace(__func__);
    char response[kDigestResponseBytes] = {};
    ClientGenAuthResHeader(client, response, uri, method);
    response[kDigestResponseBytes - 1] = '\0'; // the host's function wrote it

    const std::size_t size = std::strlen(client->authType) + kFixedCharacters + std::strlen(client->username) +
                             std::strlen(client->realm) + std::strlen(client->nonce) + std::strlen(uri) +
                             std::strlen(response) + 1;
    char *const value = static_cast<char *>(std::calloc(size, 1));
    if (value == nullptr) return trace.Fail(value, "EXIT : %s : Memory Allocation Failed for resultStr\n");
    // Kept: the scheme word goes back as it came, with digest parameters behind it whatever it is.
    std::snprintf(value, size, "%s username=\"%s\", realm=\"%s\", nonce=\"%s\", uri=\"%s\", response=\"%s\"",
                  client->authType, client->username, client->realm, client->nonce, uri, response);
    return value;
}

int32_t ClientGenAuthResHeader(RTSPClient *client, char *response, const char *uri, uint32_t method) {
    // The host's function may look at these two as the fixed fields that they are.
    char methodName[15] = {};
    const char nonceCount[9] = {};
    CopyText(methodName, MethodName(method));
    // A method without a name enters the digest as an empty text.
    if (methodName[0] == '\0') RtpRtspErrorPrint("Invalid Method\n");
    GenerateDigestResponse(client->nonce, nullptr, client->username, client->realm, client->password, "md5",
                           nonceCount, methodName, nullptr, uri, response);
    return RTSP_SUCCESS;
}

} // namespace rtsptap
