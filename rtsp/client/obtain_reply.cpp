// Where the reply of an exchange comes from: the socket, or whoever serves the connection.
#include "rtsp/client/exchange.h"

#include "dialect/dialect.h"
#include "platform/system.h"
#include "platform/waiting.h"
#include "rtp/interleaved/interleaved_service.h"
#include "rtp/interleaved/tending.h"
#include "rtp/loop/passes.h"
#include "rtp/media_session.h"
#include "rtsp/client/client.h"

#include <algorithm>
#include <limits>
#include <poll.h>

namespace rtsptap {

namespace {

// Above 0 when the socket can be read, 0 after the time-out, negative when waiting failed. A missing socket
// is a failure at once: poll would sit out the time-out on it.
int WaitReadable(MediaSession &media, int fd, int limitMs) {
    if (fd < 0) return RTSP_FAILURE;
    if (IsThreadless(media) && !IsOnFiber()) return ServeUntilReadable(media, fd, limitMs);
    pollfd waiting{.fd = fd, .events = POLLIN, .revents = 0};
    const int ready = WaitForSockets({&waiting, 1}, limitMs);
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

    const Connection &connection = rtspClient->media.connection;
    const int ready = WaitReadable(rtspClient->media, connection.socket, connection.replyLimitMs);
    if (ready < 0) return trace.Fail(kNone, "\tEXIT : %s :Socket select call failed\n");
    if (ready == 0) {
        *errCode = RTSP_RESPONSE_TIMEOUT;
        return trace.Fail(kNone, "\tEXIT : %s :No data received and timeout the session\n");
    }
    // One receive is one message, wherever the segments of the connection end.
    message->length = TCPSockRecv(connection.socket, message->data, static_cast<int>(room));
    if (message->length <= 0) return nullptr;
    DebugPrint(kDebugEntry, "\tData Received: \n%s\n", message->data);
    return message.release();
}

namespace {

// While playing or paused over TCP replies come from the thread, and also in any other state while one
// still reads the connection: a connection never has two readers. Without threads a wait reads it as they do.
bool ThreadHandsOver(const MediaSession &media) {
    if (IsThreadless(media)) return ConnectionIsServed(media);
    const uint32_t state = media.state;
    const bool underWay = state == CLIENT_PLAYING_STATE || state == CLIENT_PAUSE_STATE;
    return (media.dataProto == DATA_PROTO_TCP && underWay) || ConnectionIsServed(media);
}

// Rules, or a byte stream, may find more than one reply in what is received, or a part of one. Without a socket
// nothing is waited for.
bool ReadsAhead(const MediaSession &media) {
    constexpr Rule kRulesOfReading[] = {Rule::kFramedReplies, Rule::kLateReply, Rule::kProvisionalReply,
                                        Rule::kServerRequest};
    const auto isOn = [&media](Rule rule) { return media.dialect.IsOn(rule); };
    return media.connection.socket >= 0 && (std::ranges::any_of(kRulesOfReading, isOn) || IsKeptAlive(media) ||
                                            StreamOf(media.connection) != nullptr);
}

} // namespace

RecvBufferPtr ObtainReply(RTSPClient &client, RTSPMethod method, int32_t &failure) {
    if (ThreadHandsOver(client.media)) {
        const bool servesToo = IsThreadless(client.media);
        const Dialect &dialect = client.media.dialect;
        RecvBufferPtr reply = servesToo
                                  ? ServeUntilReply(client.media)
                                  : WaitForPostedReply(client.media.connection, dialect.IsOn(Rule::kServerCloses));
        const bool isClosed = reply == nullptr && IsClosed(client.media.connection);
        const bool isTold = isClosed && (dialect.Permits(Rule::kServerCloses) || servesToo);
        failure = isTold ? RTSP_NO_RESPONSE : RTSP_RESPONSE_TIMEOUT;
        return reply;
    }
    // The reply to the first PLAY may have media before and behind it, which must not be swallowed.
    const bool isFirstPlay = client.media.dataProto == DATA_PROTO_TCP && method == RTSP_PLAY;
    if (isFirstPlay) ChooseStreamsForFrames(client.media);
    if (isFirstPlay || ReadsAhead(client.media)) return ReceiveReplyAmongFrames(client.media, failure, isFirstPlay);
    int32_t readError = 0;
    RecvBufferPtr reply(ClientReadMessage(&client, kReplyBytes, &readError));
    failure = readError == RTSP_RESPONSE_TIMEOUT ? RTSP_RESPONSE_TIMEOUT : RTSP_NO_RESPONSE;
    if (reply != nullptr && (reply->data == nullptr || reply->length < 1)) return nullptr;
    return reply;
}

} // namespace rtsptap
