// TEARDOWN: ends the whole session. Application thread.
#include "rtp/stream_lifecycle.h"
#include "rtsp/client/checks.h"
#include "rtsp/client/client_record.h"
#include "rtsp/client/reply_status.h"
#include "rtsp/client/stream_threads.h"

namespace rtsptap {
namespace {

int32_t EndSession(Exchange &exchange) {
    RTSPClient &client = *exchange.client;
    client.state = CLIENT_INIT_STATE;
    client.connected = 0;
    client.streamCount = 0;
    CloseConnectionAndStreams(client);
    EndStreams(client);
    return RTSP_SUCCESS;
}

constexpr Step kChecks[] = {CheckHandle, CheckConnected, CheckState, CheckHeaderList};
constexpr Step kSteps[] = {GenerateRequest, SendRequest,    ReceiveReply,     ParseReply,
                           CompareSession,  ClassifyStatus, OnOk<EndSession>, CopyReply};

constexpr MethodDescriptor kTeardown{
    .functionName = "RTSPClientSendTeardownRequest",
    .method = RTSP_TEARDOWN,
    .allowedStates = States({CLIENT_PLAYING_STATE, CLIENT_PAUSE_STATE}),
    .answersChallenge = false,
    .checks = kChecks,
    .steps = kSteps,
    .sending = "Client generating and sending TEARDOWN request message \n",
    .badState = "EXIT : %s : Client State is Not Valid for TEARDOWN Method.\n",
    .badHeaderList = "EXIT : %s :HeaderList of TearDown method is not valid\n",
    .notGenerated = "EXIT : %s :Request Message for PLAY not generated \n", // Kept: it says PLAY
};

} // namespace
} // namespace rtsptap

using namespace rtsptap;

int32_t RTSPClientSendTeardownRequest(intptr_t clientHandle, intptr_t teardownHeaderList, char *responseBuff,
                                      int32_t *responseSize) {
    Exchange exchange(kTeardown, {.clientHandle = clientHandle,
                                  .headerList = teardownHeaderList,
                                  .responseBuff = responseBuff,
                                  .responseSize = responseSize});
    return RunExchange(exchange);
}
