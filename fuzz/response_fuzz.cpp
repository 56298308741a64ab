// A reply as any server may send it: parsed, looked up and taken for a challenge.
#include "rtsp/message/recv_buffer.h"
#include "rtsp/message/response.h"
#include "rtsp/message/response_parse.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

using namespace rtsptap;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // Exactly as long as the input, so that a read behind it is seen.
    char *const bytes = static_cast<char *>(std::malloc(size));
    if (bytes == nullptr) return 0;
    std::copy_n(data, size, bytes);
    const RecvBuffer buffer{static_cast<int32_t>(size), bytes};
    const ResponseMsgPtr response(ClientParseMessage(&buffer));
    std::free(bytes);
    if (!response) return 0;

    if (response->statusCode == 0 || response->headerCount > kHeaderSlots) std::abort();
    if (std::strlen(response->version) > 8 || response->reasonPhrase == nullptr) std::abort();
    for (uint32_t i = 0; i < response->headerCount; ++i)
        if (GetResponseHeader(response.get(), response->headers[i].headerName) == nullptr) std::abort();
    return 0;
}
