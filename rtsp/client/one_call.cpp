// From a created client to playing in one call, with one answer to a challenge. Application thread.
#include "platform/printers.h"
#include "platform/text.h"
#include "rtsp/client/client.h"

using namespace rtsptap;

namespace {

// The caller's buffer for raw replies; every step finds its capacity as it was given.
struct ReplyBuffer {
    ReplyBuffer(char *textBuffer, int32_t *sizeOfBuffer)
        : buffer(textBuffer), size(sizeOfBuffer), capacity(sizeOfBuffer == nullptr ? 0 : *sizeOfBuffer) {}

    void Restore() const {
        if (size != nullptr) *size = capacity;
    }

    char *const buffer;
    int32_t *const size;
    const int32_t capacity;
};

using Method = int32_t (*)(intptr_t clientHandle, intptr_t headerList, char *responseBuff, int32_t *responseSize);

// A 401 has stored its challenge: the same request again carries the answer. Kept: the buffer's size is not
// restored between the two.
int32_t SendAnsweringChallenge(Method method, intptr_t clientHandle, intptr_t headerList,
                               const ReplyBuffer &reply) {
    reply.Restore();
    const int32_t result = method(clientHandle, headerList, reply.buffer, reply.size);
    return result == RTSP_UNAUTHORIZED ? method(clientHandle, headerList, reply.buffer, reply.size) : result;
}

// The user's list applies to the first stream only.
int32_t SetUpEveryStream(intptr_t clientHandle, intptr_t setupHeaderList, const ReplyBuffer &reply) {
    const int32_t streams = RTSPClientGetNbStreams(clientHandle);
    int32_t result = RTSP_SUCCESS;
    for (int32_t number = 1; number <= streams && result == RTSP_SUCCESS; ++number) {
        reply.Restore();
        result = RTSPClientSendSetupRequest(clientHandle, number, number == 1 ? setupHeaderList : 0, reply.buffer,
                                            reply.size);
    }
    return result;
}

void StoreCredentials(RTSPClient &client, const char *username, const char *password) {
    CopyText(client.authentication.username, username == nullptr ? "" : username);
    CopyText(client.authentication.password, password == nullptr ? "" : password);
}

} // namespace

int32_t RTSPClientAutoRTSPConnect(intptr_t clientHandle, const char *serverIp, uint16_t serverPort,
                                  const char *sessionName, const char *username, const char *password,
                                  uint32_t dataProto, intptr_t optionsHeaderList, intptr_t describeHeaderList,
                                  intptr_t setupHeaderList, intptr_t playHeaderList, intptr_t mtuCallBack,
                                  char *responseBuff, int32_t *responseSize) {
    const CallTrace trace(__func__);
    if (clientHandle == 0 || serverIp == nullptr || sessionName == nullptr || serverPort == 0 ||
        dataProto > DATA_PROTO_TCP)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    RTSPClient *const client = LiveClient(clientHandle);
    if (client == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid client handle\n");
    const ReplyBuffer reply(responseBuff, responseSize);
    if (RTSPClientConnect(clientHandle, serverIp, serverPort, sessionName, dataProto, mtuCallBack) != RTSP_SUCCESS)
        return trace.Fail(RTSP_NOT_CONNECTED, "EXIT : %s :Client Connection to RTSP server Failed\n");
    StoreCredentials(*client, username, password);

    if (SendAnsweringChallenge(RTSPClientSendOptionsRequest, clientHandle, optionsHeaderList, reply) !=
        RTSP_SUCCESS)
        return trace.Fail(RTSP_SEND_FAILED, "EXIT : %s : Error in RTSP connect state OPTIONS\n");
    if (SendAnsweringChallenge(RTSPClientSendDescribeRequest, clientHandle, describeHeaderList, reply) !=
        RTSP_SUCCESS)
        return trace.Fail(RTSP_SEND_FAILED, "EXIT : %s : Error in RTSP connect state DESCRIBE\n");
    if (SetUpEveryStream(clientHandle, setupHeaderList, reply) != RTSP_SUCCESS)
        return trace.Fail(RTSP_SEND_FAILED, "EXIT : %s : Error in RTSP connect state SETUP\n");
    reply.Restore();
    if (RTSPClientSendPlayRequest(clientHandle, 0, playHeaderList, responseBuff, responseSize) != RTSP_SUCCESS)
        return trace.Fail(RTSP_SEND_FAILED, "EXIT : %s : Error in RTSP connect state PLAY\n");
    return RTSP_SUCCESS;
}
