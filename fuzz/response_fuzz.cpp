// A reply as any server may send it: parsed, looked up and taken for a challenge.
#include "fuzz/fuzz_target.h"
#include "rtsp/message/recv_buffer.h"
#include "rtsp/message/response.h"
#include "rtsp/message/response_parse.h"

#include <cstring>
#include <vector>

using namespace rtsptap;
using fuzz::Require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // Exactly as long as the input, so that a read behind it is seen.
    std::vector<char> bytes(data, data + size);
    const RecvBuffer buffer{static_cast<int32_t>(size), bytes.data()};
    const ResponseMsgPtr response(ClientParseMessage(&buffer));
    if (!response) return 0;

    Require(response->statusCode != 0 && response->headerCount <= kHeaderSlots);
    Require(std::strlen(response->version) <= 8 && response->reasonPhrase != nullptr);
    for (uint32_t i = 0; i < response->headerCount; ++i)
        Require(GetResponseHeader(response.get(), response->headers[i].headerName) != nullptr);
    for (const char *name : {"Session", "Transport", "Content-Length", "WWW-Authenticate", ""})
        GetResponseHeader(response.get(), name);
    return 0;
}
