// PAUSE: halts one stream or all; threads and sockets stay. Application thread.
#include "rtp/stream_lifecycle.h"
#include "rtp/stream_record.h"
#include "rtsp/client/checks.h"
#include "rtsp/client/client_record.h"
#include "rtsp/client/reply_status.h"

namespace rtsptap {
namespace {

int32_t PauseStreams(Exchange &exchange) {
    RTSPClient &client = *exchange.client;
    const int32_t number = exchange.arguments.streamNumber;
    bool anyPlays = false;
    int32_t at = 1;
    for (RTSPStreamInfo *stream = client.streamList; stream != nullptr; stream = stream->next, ++at) {
        if (number == 0 || at == number) stream->streamState = kStreamPaused;
        anyPlays = anyPlays || stream->streamState == kStreamPlaying;
    }
    if (!anyPlays) client.state = CLIENT_PAUSE_STATE;
    return RTSP_SUCCESS;
}

// Unlike PLAY, PAUSE looks at the stream number before the connection.
constexpr Step kChecks[] = {CheckHandleAndSession, CheckStreamNumber, CheckConnected, CheckState, CheckHeaderList};
constexpr Step kSteps[] = {GenerateRequest, SendRequest,    ReceiveReply,       ParseReply,
                           CompareSession,  ClassifyStatus, OnOk<PauseStreams>, CopyReply};

constexpr MethodDescriptor kPause{
    .functionName = "RTSPClientSendPauseRequest",
    .method = RTSP_PAUSE,
    .allowedStates = States({CLIENT_PLAYING_STATE}),
    .answersChallenge = false,
    .checks = kChecks,
    .steps = kSteps,
    .sending = "Client generating and sending PAUSE request message \n",
    .badState = "EXIT : %s :Client State is Not Valid for PAUSE Method.\n",
    .badHeaderList = "EXIT : %s :HeaderList of Pause method is not valid\n",
    .notGenerated = "EXIT : %s :Request Message for PAUSE not generated \n",
};

} // namespace
} // namespace rtsptap

using namespace rtsptap;

int32_t RTSPClientSendPauseRequest(intptr_t clientHandle, int32_t streamCount, intptr_t pauseHeaderList,
                                   char *responseBuff, int32_t *responseSize) {
    Exchange exchange(kPause, {clientHandle, streamCount, pauseHeaderList, responseBuff, responseSize});
    return RunExchange(exchange);
}
