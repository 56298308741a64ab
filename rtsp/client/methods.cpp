// The methods that are a row and a step of their own: OPTIONS, PLAY, PAUSE, TEARDOWN. Application thread.
#include "rtp/loop/passes.h"
#include "rtp/media_session.h"
#include "rtp/stream.h"
#include "rtsp/client/client.h"
#include "rtsp/client/exchange.h"
#include "rtsp/client/keep_alive.h"
#include "rtsptap_extended.h"

namespace rtsptap {
namespace {

// ---- OPTIONS: leads to its state from any other. Kept: also while playing ----

constexpr Step kOptionsChecks[] = {CheckHandle, CheckConnected, CheckHeaderList};
constexpr Step kOptionsSteps[] = {GenerateRequest, SendRequest,    ReceiveReply,     AnswerChallenge,
                                  ParseReply,      ClassifyStatus, OnOk<EnterState>, OnOk<ChooseKeepAlive>,
                                  CopyReply};

constexpr MethodDescriptor kOptions{
    .functionName = "RTSPClientSendOptionsRequest",
    .method = RTSP_OPTIONS,
    .allowedStates = ~StateSet{0},
    .answersChallenge = true,
    .checks = kOptionsChecks,
    .steps = kOptionsSteps,
    .sending = "Client generating and sending OPTIONS request message \n",
    .badState = "EXIT : %s :Client State is Not Valid for OPTIONS Method.\n",
    .badHeaderList = "EXIT : %s :HeaderList of Options method is not valid\n",
    .notGenerated = "EXIT : %s :Request Message for OPTIONS not generated \n",
};

// ---- PLAY: starts or resumes one stream or all, and the receive threads ----

void PlayOverUdp(RTSPStreamInfo &stream) {
    if (stream.streamState != kStreamPaused) StartUdpThread(stream); // the thread of a paused stream still runs
    stream.streamState = kStreamPlaying;
}

void PlayInterleaved(MediaSession &media, int32_t streamNumber) {
    for (RTSPStreamInfo *stream = media.streamList; streamNumber == 0 && stream != nullptr; stream = stream->next)
        stream->streamState = kStreamPlaying;
    // Kept: the state is PLAYING by now, so a resumed session starts its thread again, too.
    if (media.state != CLIENT_PAUSE_STATE) StartInterleavedThread(media);
    if (RTSPStreamInfo *const stream = FindStreamByNumber(media, streamNumber))
        stream->streamState = kStreamPlaying;
}

void PlayOverUdp(MediaSession &media, int32_t streamNumber) {
    StopInterleavedThread(media, -1); // of an earlier session over TCP: its streams receive datagrams now
    if (streamNumber == 0) {
        for (RTSPStreamInfo *stream = media.streamList; stream != nullptr; stream = stream->next)
            PlayOverUdp(*stream);
    } else if (RTSPStreamInfo *const stream = FindStreamByNumber(media, streamNumber)) {
        PlayOverUdp(*stream);
    }
}

// Before threads start: what ends from here on ends this reception.
void BeginReceptions(const MediaSession &media, int32_t streamNumber) {
    int32_t at = 1;
    for (RTSPStreamInfo *stream = media.streamList; stream != nullptr; stream = stream->next, ++at)
        if (streamNumber == 0 || at == streamNumber) BeginReception(*stream);
}

} // namespace

int32_t StartPlaying(Exchange &exchange) {
    RTSPClient &client = *exchange.client;
    const int32_t number = exchange.arguments.streamNumber;
    EnterState(exchange);
    RtpRtspInfoPrint("Successful response of PLAY is received ... \n");
    BeginReceptions(client.media, number);
    NotePlayReply(exchange);
    if (client.media.dataProto == DATA_PROTO_TCP)
        PlayInterleaved(client.media, number);
    else
        PlayOverUdp(client.media, number);
    if (IsThreadless(client.media)) ServeAll(client.media); // what came with the reply has been read already
    return RTSP_SUCCESS;
}

namespace {

constexpr Step kPlayChecks[] = {CheckHandleAndSession, CheckConnected, CheckStreamNumber, CheckState,
                                CheckHeaderList};
constexpr Step kPlaySteps[] = {GenerateRequest, SendRequest,    ReceiveReply,       AnswerChallenge, ParseReply,
                               CompareSession,  ClassifyStatus, OnOk<StartPlaying>, CopyReply};

constexpr MethodDescriptor kPlay{
    .functionName = "RTSPClientSendPlayRequest",
    .method = RTSP_PLAY,
    .allowedStates = States({CLIENT_READY_STATE, CLIENT_PLAYING_STATE, CLIENT_PAUSE_STATE}),
    .answersChallenge = false,
    .checks = kPlayChecks,
    .steps = kPlaySteps,
    .sending = "Client generating and sending PLAY request message \n",
    .badState = "EXIT : %s :Client State is Not Valid for PLAY Method.\n",
    .badHeaderList = "EXIT : %s :HeaderList of Play method is not valid\n",
    .notGenerated = "EXIT : %s :Request Message for PLAY not generated \n",
};

// ---- PAUSE: halts one stream or all; threads and sockets stay ----

int32_t PauseStreams(Exchange &exchange) {
    RTSPClient &client = *exchange.client;
    const int32_t number = exchange.arguments.streamNumber;
    bool anyPlays = false;
    int32_t at = 1;
    for (RTSPStreamInfo *stream = client.media.streamList; stream != nullptr; stream = stream->next, ++at) {
        if (number == 0 || at == number) stream->streamState = kStreamPaused;
        anyPlays = anyPlays || stream->streamState == kStreamPlaying;
    }
    if (!anyPlays) EnterState(exchange);
    return RTSP_SUCCESS;
}

// Unlike PLAY, PAUSE looks at the stream number before the connection.
constexpr Step kPauseChecks[] = {CheckHandleAndSession, CheckStreamNumber, CheckConnected, CheckState,
                                 CheckHeaderList};
constexpr Step kPauseSteps[] = {GenerateRequest, SendRequest,    ReceiveReply,       AnswerChallenge, ParseReply,
                                CompareSession,  ClassifyStatus, OnOk<PauseStreams>, CopyReply};

constexpr MethodDescriptor kPause{
    .functionName = "RTSPClientSendPauseRequest",
    .method = RTSP_PAUSE,
    .allowedStates = States({CLIENT_PLAYING_STATE}),
    .answersChallenge = false,
    .checks = kPauseChecks,
    .steps = kPauseSteps,
    .sending = "Client generating and sending PAUSE request message \n",
    .badState = "EXIT : %s :Client State is Not Valid for PAUSE Method.\n",
    .badHeaderList = "EXIT : %s :HeaderList of Pause method is not valid\n",
    .notGenerated = "EXIT : %s :Request Message for PAUSE not generated \n",
};

// ---- TEARDOWN: ends the whole session ----

int32_t EndSession(Exchange &exchange) {
    RTSPClient &client = *exchange.client;
    EnterState(exchange);
    client.connected = 0;
    EndReceptions(client.media, RTSPTAP_TORN_DOWN);
    client.media.tornDownStreams = client.media.streamCount.load();
    client.media.streamCount = 0;
    CloseConnectionAndStreams(client.media);
    EndStreams(client.media);
    return RTSP_SUCCESS;
}

constexpr Step kTeardownChecks[] = {CheckHandle, CheckConnected, CheckState, CheckHeaderList};
constexpr Step kTeardownSteps[] = {GenerateRequest, SendRequest,    ReceiveReply,     AnswerChallenge, ParseReply,
                                   CompareSession,  ClassifyStatus, OnOk<EndSession>, CopyReply};

consteval MethodDescriptor TeardownRow(const char *functionName, StateSet allowedStates) {
    return {
        .functionName = functionName,
        .method = RTSP_TEARDOWN,
        .allowedStates = allowedStates,
        .answersChallenge = false,
        .checks = kTeardownChecks,
        .steps = kTeardownSteps,
        .sending = "Client generating and sending TEARDOWN request message \n",
        .badState = "EXIT : %s : Client State is Not Valid for TEARDOWN Method.\n",
        .badHeaderList = "EXIT : %s :HeaderList of TearDown method is not valid\n",
        .notGenerated = "EXIT : %s :Request Message for PLAY not generated \n", // Kept: it says PLAY
    };
}

constexpr MethodDescriptor kTeardown =
    TeardownRow("RTSPClientSendTeardownRequest", States({CLIENT_PLAYING_STATE, CLIENT_PAUSE_STATE}));
constexpr MethodDescriptor kTeardownOfAny =
    TeardownRow("RTSPTapTeardown", States({CLIENT_READY_STATE, CLIENT_PLAYING_STATE, CLIENT_PAUSE_STATE}));

} // namespace
} // namespace rtsptap

using namespace rtsptap;

int32_t RTSPClientSendOptionsRequest(intptr_t clientHandle, intptr_t optionsHeaderList, char *responseBuff,
                                     int32_t *responseSize) {
    Exchange exchange(kOptions, {.clientHandle = clientHandle,
                                 .headerList = optionsHeaderList,
                                 .responseBuff = responseBuff,
                                 .responseSize = responseSize});
    return RunExchange(exchange);
}

int32_t RTSPClientSendPlayRequest(intptr_t clientHandle, int32_t streamCount, intptr_t playHeaderList,
                                  char *responseBuff, int32_t *responseSize) {
    Exchange exchange(kPlay, {clientHandle, streamCount, playHeaderList, responseBuff, responseSize});
    return RunExchange(exchange);
}

int32_t RTSPClientSendPauseRequest(intptr_t clientHandle, int32_t streamCount, intptr_t pauseHeaderList,
                                   char *responseBuff, int32_t *responseSize) {
    Exchange exchange(kPause, {clientHandle, streamCount, pauseHeaderList, responseBuff, responseSize});
    return RunExchange(exchange);
}

int32_t RTSPClientSendTeardownRequest(intptr_t clientHandle, intptr_t teardownHeaderList, char *responseBuff,
                                      int32_t *responseSize) {
    Exchange exchange(kTeardown, {.clientHandle = clientHandle,
                                  .headerList = teardownHeaderList,
                                  .responseBuff = responseBuff,
                                  .responseSize = responseSize});
    return RunExchange(exchange);
}

int32_t RTSPTapTeardown(intptr_t clientHandle) {
    Exchange exchange(kTeardownOfAny, {.clientHandle = clientHandle});
    return RunExchange(exchange);
}
