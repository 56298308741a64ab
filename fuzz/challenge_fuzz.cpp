// A hostile WWW-Authenticate value: cut up, stored and sent back.
#include "platform/text.h"
#include "rtsp/client/challenge.h"
#include "rtsp/client/client_record.h"
#include "rtsp/message/authorization.h"
#include "rtsp/message/response.h"

#include <cstdlib>
#include <cstring>

using namespace rtsptap;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const ResponseMsgPtr response(new ResponseMsg{});
    response->headers[0].headerName = DuplicateText("WWW-Authenticate").release();
    response->headers[0].headerValue = DuplicateText({reinterpret_cast<const char *>(data), size}).release();
    response->headerCount = 1;

    RTSPClient client{};
    StoreChallenge(client, *response);
    if ((client.authRequired != 0) != (client.authType[0] != '\0')) std::abort();
    const HeapText value(GenerateRTSPAuthenticationRequest(&client, "rtsp://127.0.0.1:554/live", 0));
    const char *const tail = std::strstr(value.get(), "\", uri=\"rtsp://127.0.0.1:554/live\", response=\"");
    if (tail == nullptr || !std::string_view(tail).ends_with('"')) std::abort();
    return 0;
}
