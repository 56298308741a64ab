#include "rtsp/message/response_read.h"

#include "platform/call_trace.h"
#include "rtsp/client/client_record.h"
#include "rtsp/message/recv_buffer.h"

#include <algorithm>
#include <limits>
#include <poll.h>

namespace rtsptap {

namespace {

// Above 0 when the socket can be read, 0 after the time-out, negative when waiting failed. A missing socket
// is a failure at once: poll would sit out the time-out on it.
int WaitReadable(int fd) {
    if (fd < 0) return RTSP_FAILURE;
    pollfd waiting{.fd = fd, .events = POLLIN, .revents = 0};
    const int ready = poll(&waiting, 1, kReplyTimeoutMs);
    return (waiting.revents & POLLNVAL) != 0 ? RTSP_FAILURE : ready;
}

} // namespace

RecvBuffer *ClientReadMessage(RTSPClient *rtspClient, uint32_t readSize, int32_t *errCode) {
    constexpr RecvBuffer *kNone = nullptr;
    constexpr uint32_t kLongestRead = std::numeric_limits<int32_t>::max();
    const CallTrace trace(__func__);
    if (rtspClient == nullptr || errCode == nullptr)
        return trace.Fail(kNone, "\tEXIT : %s :Invalid input argument\n");
    const uint32_t room = std::min(readSize, kLongestRead);
    RecvBufferPtr message(CreateRecvBuffer(room));
    if (!message) return trace.Fail(kNone, "\tEXIT : %s :Memory Allocation Failed\n");

    const int ready = WaitReadable(rtspClient->rtspSocket);
    if (ready < 0) return trace.Fail(kNone, "\tEXIT : %s :Socket select call failed\n");
    if (ready == 0) {
        *errCode = RTSP_RESPONSE_TIMEOUT;
        return trace.Fail(kNone, "\tEXIT : %s :No data received and timeout the session\n");
    }
    // One receive is one message, wherever the segments of the connection end.
    message->length = TCPSockRecv(rtspClient->rtspSocket, message->data, static_cast<int>(room));
    if (message->length <= 0) return nullptr;
    DebugPrint(kDebugEntry, "\tData Received: \n%s\n", message->data);
    return message.release();
}

} // namespace rtsptap
