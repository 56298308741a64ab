// A hostile WWW-Authenticate value: cut up, stored and sent back.
#include "fuzz/fuzz_target.h"
#include "platform/text.h"
#include "rtsp/client/client.h"
#include "rtsp/message/authentication.h"
#include "rtsp/message/response.h"

#include <cstring>

using namespace rtsptap;

// A host's own function: what it is given ends where it should, and it fills all that it may.
int GenerateDigestResponse(const char *nonce, const char *, const char *username, const char *realm,
                           const char *password, const char *, const char *, const char *method, const char *,
                           const char *, char *response) {
    fuzz::Require(std::strlen(nonce) < 128 && std::strlen(realm) < 256 && *username == '\0' && *password == '\0');
    fuzz::Require(std::string_view(method) == "OPTIONS");
    std::memset(response, 'f', 256);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const ResponseMsgPtr response(new ResponseMsg{});
    response->headers[0].headerName = DuplicateText("WWW-Authenticate").release();
    response->headers[0].headerValue = DuplicateText(fuzz::TextOf(data, size)).release();
    response->headerCount = 1;

    Authentication is;
    StoreChallenge(is, *response);
    fuzz::Require((is.required != 0) == (is.type[0] != '\0'));
    const HeapText value(GenerateRTSPAuthenticationRequest(is, "rtsp://127.0.0.1:554/live", 0));
    const char *const tail = std::strstr(value.get(), "\", uri=\"rtsp://127.0.0.1:554/live\", response=\"");
    fuzz::Require(tail != nullptr && std::string_view(tail).ends_with('"'));
    return 0;
}
