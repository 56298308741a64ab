#include "rtsp/client/reply_source.h"

#include "platform/scope.h"
#include "rtp/interleaved_loop.h"
#include "rtp/stream_record.h"
#include "rtp/stream_thread.h"
#include "rtsp/client/client_record.h"
#include "rtsp/client/stream_threads.h"
#include "rtsp/message/response_read.h"

#include <cerrno>
#include <ctime>

namespace rtsptap {
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
