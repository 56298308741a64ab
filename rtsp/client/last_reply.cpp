// The reply that the last exchange of a client received, whatever became of the exchange. Application thread.
#include "platform/call_trace.h"
#include "rtsp/client/client_record.h"
#include "rtsp/client/registry.h"
#include "rtsp/message/recv_buffer.h"

#include <cstring>

using namespace rtsptap;

int32_t RTSPClientGetLastReply(intptr_t clientHandle, char *responseBuff, int32_t *responseSize) {
    const CallTrace trace(__func__);
    if (clientHandle == 0 || responseSize == nullptr)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    const RTSPClient *const client = LiveClient(clientHandle);
    if (client == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid client handle\n");
    if (client->lastReply == nullptr) return RTSP_FAILURE;

    const int32_t length = client->lastReply->length;
    const bool fits = responseBuff == nullptr || length <= *responseSize;
    *responseSize = length;
    if (!fits)
        return trace.Fail(RTSP_SMALL_BUFFER, "EXIT : %s :Small Buffer received from Application for Response\n");
    if (responseBuff != nullptr) memcpy(responseBuff, client->lastReply->data, static_cast<std::size_t>(length));
    return RTSP_SUCCESS;
}
