
#include "rtsp/client/reply_source.h"

#include "platform/printers.h"
#include "platform/system.h"
#include "rtp/interleaved/connection.h"
#include "rtp/interleaved/interleaved_service.h"
#include "rtp/service_thread.h"
#include "rtp/session_threads.h"
#include "rtp/stream.h"
#include "rtsp/client/client.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
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

namespace {

bool ThreadServesConnection(const RTSPClient &client) {
    const RTSPStreamInfo *const first = client.streamList;
    return first != nullptr && IsServing(first->rtpThread) && ServesConnection(first->rtpThread);
}

// While playing or paused over TCP replies come from the thread, and also in any other state while one
// still reads the connection: a connection never has two readers.
bool ThreadHandsOver(const RTSPClient &client) {
    const uint32_t state = client.state;
    const bool underWay = state == CLIENT_PLAYING_STATE || state == CLIENT_PAUSE_STATE;
    return (client.dataProto == DATA_PROTO_TCP && underWay) || ThreadServesConnection(client);
}

timespec DeadlineIn(int milliseconds) {
    timespec deadline;
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += milliseconds / 1000;
    return deadline;
}

RecvBufferPtr WaitForHandOver(RTSPClient &client) {
    const timespec deadline = DeadlineIn(kReplyTimeoutMs);
    const ScopedLock lock(client.replyLock);
    for (int waited = 0; waited != ETIMEDOUT;) {
        if (RecvBufferPtr reply(client.recvData.exchange(nullptr)); reply != nullptr) return reply;
        waited = pthread_cond_clockwait(&client.replyCondition, &client.replyLock, CLOCK_MONOTONIC, &deadline);
    }
    return RecvBufferPtr(client.recvData.exchange(nullptr));
}

} // namespace

void BeginAwaiting(RTSPClient &client) {
    const RecvBufferPtr stale(client.recvData.exchange(nullptr));
    ++client.exchangeCount; // whoever serves the connection drops text that is older
    client.awaitingReply = true;
}

void EndAwaiting(RTSPClient &client) {
    client.awaitingReply = false;
    const RecvBufferPtr surplus(client.recvData.exchange(nullptr));
}

RecvBufferPtr ObtainReply(RTSPClient &client, RTSPMethod method, int32_t &failure) {
    if (ThreadHandsOver(client)) {
        failure = RTSP_RESPONSE_TIMEOUT;
        return WaitForHandOver(client);
    }
    // The reply to the first PLAY may have media before and behind it, which must not be swallowed.
    if (client.dataProto == DATA_PROTO_TCP && method == RTSP_PLAY) {
        ChooseStreamsForFrames(client);
        return ReceiveReplyAmongFrames(client, failure);
    }
    int32_t readError = 0;
    RecvBufferPtr reply(ClientReadMessage(&client, kReplyBytes, &readError));
    failure = readError == RTSP_RESPONSE_TIMEOUT ? RTSP_RESPONSE_TIMEOUT : RTSP_NO_RESPONSE;
    if (reply != nullptr && (reply->data == nullptr || reply->length < 1)) return nullptr;
    return reply;
}

} // namespace rtsptap
