// PLAY: starts or resumes one stream or all, and the receive threads. Application thread.
#include "rtp/stream_lifecycle.h"
#include "rtp/stream_record.h"
#include "rtsp/client/checks.h"
#include "rtsp/client/client_record.h"
#include "rtsp/client/reply_status.h"
#include "rtsp/client/stream_threads.h"

namespace rtsptap {
namespace {

void PlayOverUdp(RTSPStreamInfo &stream) {
    if (stream.streamState != kStreamPaused) StartUdpThreads(stream); // the threads of a paused stream still run
    stream.streamState = kStreamPlaying;
}

void PlayInterleaved(RTSPClient &client, int32_t streamNumber) {
    for (RTSPStreamInfo *stream = client.streamList; streamNumber == 0 && stream != nullptr; stream = stream->next)
        stream->streamState = kStreamPlaying;
    // Kept: the state is PLAYING by now, so a resumed session starts its thread again, too.
    if (client.state != CLIENT_PAUSE_STATE) StartInterleavedThread(client);
    if (RTSPStreamInfo *const stream = FindStreamByNumber(client, streamNumber))
        stream->streamState = kStreamPlaying;
}

void PlayOverUdp(RTSPClient &client, int32_t streamNumber) {
    StopInterleavedThread(client, -1); // of an earlier session over TCP: its streams receive datagrams now
    if (streamNumber == 0) {
        for (RTSPStreamInfo *stream = client.streamList; stream != nullptr; stream = stream->next)
            PlayOverUdp(*stream);
    } else if (RTSPStreamInfo *const stream = FindStreamByNumber(client, streamNumber)) {
        PlayOverUdp(*stream);
    }
}

int32_t StartPlaying(Exchange &exchange) {
    RTSPClient &client = *exchange.client;
    const int32_t number = exchange.arguments.streamNumber;
    client.state = CLIENT_PLAYING_STATE;
    RtpRtspInfoPrint("Successful response of PLAY is received ... \n");
    if (client.dataProto == DATA_PROTO_TCP)
        PlayInterleaved(client, number);
    else
        PlayOverUdp(client, number);
    return RTSP_SUCCESS;
}

constexpr Step kChecks[] = {CheckHandleAndSession, CheckConnected, CheckStreamNumber, CheckState, CheckHeaderList};
constexpr Step kSteps[] = {GenerateRequest, SendRequest,    ReceiveReply,       ParseReply,
                           CompareSession,  ClassifyStatus, OnOk<StartPlaying>, CopyReply};

constexpr MethodDescriptor kPlay{
    .functionName = "RTSPClientSendPlayRequest",
    .method = RTSP_PLAY,
    .allowedStates = States({CLIENT_READY_STATE, CLIENT_PLAYING_STATE, CLIENT_PAUSE_STATE}),
    .answersChallenge = false,
    .checks = kChecks,
    .steps = kSteps,
    .sending = "Client generating and sending PLAY request message \n",
    .badState = "EXIT : %s :Client State is Not Valid for PLAY Method.\n",
    .badHeaderList = "EXIT : %s :HeaderList of Play method is not valid\n",
    .notGenerated = "EXIT : %s :Request Message for PLAY not generated \n",
};

} // namespace
} // namespace rtsptap

using namespace rtsptap;

int32_t RTSPClientSendPlayRequest(intptr_t clientHandle, int32_t streamCount, intptr_t playHeaderList,
                                  char *responseBuff, int32_t *responseSize) {
    Exchange exchange(kPlay, {clientHandle, streamCount, playHeaderList, responseBuff, responseSize});
    return RunExchange(exchange);
}
