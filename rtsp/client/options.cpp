// OPTIONS. Application thread.
#include "rtsp/client/checks.h"
#include "rtsp/client/client_record.h"
#include "rtsp/client/reply_status.h"

namespace rtsptap {
namespace {

// Kept: OPTIONS leads to this state from any other, also while playing.
int32_t EnterOptionsSent(Exchange &exchange) {
    DebugPrint(kDebugEntry, "\tSetting State of client to 'CLIENT_OPTIONS_SENT_STATE' \n");
    exchange.client->state = CLIENT_OPTIONS_SENT_STATE;
    return RTSP_SUCCESS;
}

constexpr Step kChecks[] = {CheckHandle, CheckConnected, CheckHeaderList};
constexpr Step kSteps[] = {GenerateRequest,        SendRequest, ReceiveReply, ParseReply, ClassifyStatus,
                           OnOk<EnterOptionsSent>, CopyReply};

constexpr MethodDescriptor kOptions{
    .functionName = "RTSPClientSendOptionsRequest",
    .method = RTSP_OPTIONS,
    .allowedStates = ~StateSet{0},
    .answersChallenge = true,
    .checks = kChecks,
    .steps = kSteps,
    .sending = "Client generating and sending OPTIONS request message \n",
    .badState = "EXIT : %s :Client State is Not Valid for OPTIONS Method.\n",
    .badHeaderList = "EXIT : %s :HeaderList of Options method is not valid\n",
    .notGenerated = "EXIT : %s :Request Message for OPTIONS not generated \n",
};

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
