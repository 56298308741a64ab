#include "rtsp/message/request.h"

#include "platform/call_trace.h"
#include "platform/text.h"

#include <cstdlib>
#include <new>

namespace rtsptap {

RequestMsgPtr CreateRequestMsg(uint32_t method) {
    RequestMsgPtr request(new (std::nothrow) RequestMsg{});
    if (!request) return nullptr;
    request->method = method;
    request->uri = static_cast<char *>(std::calloc(kUriBytes, 1));
    request->version = static_cast<char *>(std::calloc(kVersionBytes, 1));
    if (request->uri == nullptr || request->version == nullptr) return nullptr;
    CopyText(request->version, kVersionBytes, "RTSP/1.0");
    return request;
}

int32_t AddRequestHeader(RequestMsg *requestMsg, const char *headerName, const char *headerValue) {
    const CallTrace trace(__func__);
    if (requestMsg == nullptr || headerName == nullptr || headerValue == nullptr)
        return trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Invalid input argument\n");
    if (requestMsg->headerCount >= kHeaderSlots)
        return trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Request Message already has maximum number of messages\n");
    HeapText name = DuplicateText(headerName);
    if (!name) return trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Memory Allocation Failed\n");
    HeapText value = DuplicateText(headerValue);
    if (!value) return trace.Fail(RTSP_NO_MEMORY, "\tEXIT : %s :Memory Allocation Failed\n");

    RTSPHeaderStruct &slot = requestMsg->headers[requestMsg->headerCount++];
    slot.headerName = name.release();
    slot.headerValue = value.release();
    DebugPrint(kDebugEntry, "Added Header= %s : %s\n", headerName, headerValue);
    return RTSP_SUCCESS;
}

void freeRequestMsg(RequestMsg *requestMsg) {
    if (requestMsg == nullptr) return;
    for (RTSPHeaderStruct &slot : requestMsg->headers) ReleaseHeaderSlot(slot);
    std::free(requestMsg->uri);
    std::free(requestMsg->version);
    delete requestMsg;
}

} // namespace rtsptap
