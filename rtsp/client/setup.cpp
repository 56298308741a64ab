// SETUP: one stream's transport, from local ports to what the server grants. Application thread.
#include "rtp/stream_lifecycle.h"
#include "rtp/stream_record.h"
#include "rtsp/client/checks.h"
#include "rtsp/client/client_record.h"
#include "rtsp/client/reply_status.h"
#include "rtsp/client/transport_reply.h"
#include "rtsp/client/transport_request.h"

namespace rtsptap {
namespace {

int32_t SelectStream(Exchange &exchange) {
    const int32_t number = exchange.arguments.streamNumber;
    exchange.stream = FindStreamByNumber(*exchange.client, number);
    if (exchange.stream == nullptr)
        return exchange.trace.Fail(RTSP_INVALID_ARGUMENT,
                                   "EXIT : %s :Not able to get stream info from list for Stream Number\n");
    SetChannel(*exchange.stream, (static_cast<uint32_t>(number) - 1) * 2); // for UDP, too
    return RTSP_SUCCESS;
}

// Kept: the state is set before the headers are looked at, so what fails behind this leaves it READY.
int32_t BecomeReady(Exchange &exchange) {
    exchange.client->state = CLIENT_READY_STATE;
    RtpRtspInfoPrint("Successful response of SETUP is received from server .... \n");
    return RTSP_SUCCESS;
}

constexpr Step kChecks[] = {CheckHandleAndStream, CheckConnected,    CheckState,  CheckStreamNumber,
                            CheckHeaderList,      TakeUserTransport, SelectStream};
constexpr Step kSteps[] = {GenerateRequest,
                           PrepareTransport, // closes what it opened when it fails
                           OnFailureClose<Undo::kBothSockets>,
                           SendRequest,
                           ReceiveReply,
                           ParseReply,
                           OnFailureClose<Undo::kRtpSocket>,
                           ClassifyStatus,
                           OnOk<BecomeReady>,
                           OnFailureClose<Undo::kBothSockets>,
                           OnOk<TakeSession>,
                           OnFailureClose<Undo::kRtpSocket>,
                           OnOk<ApplyTransport>,
                           CopyReply};

constexpr MethodDescriptor kSetup{
    .functionName = "RTSPClientSendSetupRequest",
    .method = RTSP_SETUP,
    .allowedStates = States({CLIENT_DESCRIBE_SENT_STATE, CLIENT_READY_STATE}),
    .answersChallenge = false,
    .checks = kChecks,
    .steps = kSteps,
    .sending = "Client generating and sending SETUP request message \n",
    .badState = "EXIT : %s :Client State is Not Valid for SETUP Method.\n",
    .badHeaderList = "EXIT : %s :HeaderList of Setup method is not valid\n",
    .notGenerated = "EXIT : %s :Request Message for SETUP not generated \n",
};

} // namespace
} // namespace rtsptap

using namespace rtsptap;

int32_t RTSPClientSendSetupRequest(intptr_t clientHandle, int32_t streamCount, intptr_t setupHeaderList,
                                   char *responseBuff, int32_t *responseSize) {
    Exchange exchange(kSetup, {clientHandle, streamCount, setupHeaderList, responseBuff, responseSize});
    return RunExchange(exchange);
}
