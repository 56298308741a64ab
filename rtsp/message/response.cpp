#include "rtsp/message/response.h"

#include "platform/call_trace.h"
#include "platform/text.h"

#include <cstdlib>
#include <utility>

namespace rtsptap {

char *GetResponseHeader(ResponseMsg *responseMsg, const char *headerName) {
    const CallTrace trace(__func__);
    if (responseMsg != nullptr && headerName != nullptr)
        for (uint32_t i = 0; i < responseMsg->headerCount; ++i)
            if (EqualIgnoringCase(responseMsg->headers[i].headerName, headerName))
                return responseMsg->headers[i].headerValue;
    return trace.Fail(static_cast<char *>(nullptr), "\tEXIT : %s :Null Pointer Assignment\n");
}

void freeResponseMsg(ResponseMsg *responseMsg) {
    if (responseMsg == nullptr) return;
    for (RTSPHeaderStruct &slot : responseMsg->headers) ReleaseHeaderSlot(slot);
    std::free(responseMsg->version);
    delete responseMsg;
}

void ResponseMsgDeleter::operator()(ResponseMsg *responseMsg) const {
    std::free(std::exchange(responseMsg->reasonPhrase, nullptr));
    freeResponseMsg(responseMsg);
}

} // namespace rtsptap
