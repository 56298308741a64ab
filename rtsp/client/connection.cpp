// Opening the control connection, by itself or with a whole session behind it. Application thread.
#include "platform/address.h"
#include "platform/connecting.h"
#include "platform/printers.h"
#include "platform/system.h"
#include "platform/text.h"
#include "rtp/service_thread.h"
#include "rtp/stream.h"
#include "rtsp/client/byte_stream.h"
#include "rtsp/client/client.h"
#include "rtsp/client/connect.h"
#include "rtsp/client/progress.h"
#include "rtsptap_extended.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <utility>

using namespace rtsptap;

namespace {

constexpr std::size_t kLongestServerIp = 31; // characters

bool AreArgumentsValid(intptr_t clientHandle, const char *serverIp, uint16_t serverPort, const char *sessionName,
                       uint32_t dataProto) {
    return clientHandle != 0 && serverIp != nullptr && serverPort != 0 && sessionName != nullptr &&
           dataProto <= DATA_PROTO_TCP && strlen(serverIp) <= kLongestServerIp &&
           strlen(sessionName) < sizeof(RTSPClient::sessionName);
}

// An earlier connection stays open until Destroy. Room for its descriptor is made before a new one is opened.
bool ReserveSuperseded(RTSPClient &client) {
    const std::size_t bytes = (client.supersededCount + 1) * sizeof(int32_t);
    auto *const grown = static_cast<int32_t *>(realloc(client.supersededSockets, bytes));
    if (grown == nullptr) return false;
    client.supersededSockets = grown;
    return true;
}

// Requests and reports are whole in one send. Held back for the acknowledgement of the one before, a request that
// follows a report would be 40 ms late.
void SendAtOnce(int socket) {
    const int on = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

int32_t OpenConnection(const CallTrace &trace, RTSPClient &client, const Address &address, NewConnection &made) {
    UniqueSocket connection(OpenStreamSocket());
    if (!connection.IsOpen())
        return trace.Fail(RTSP_SOCKET_FAILED, "EXIT : %s :RTSP Client socket creation failed\n");
    if (!ReserveSuperseded(client) ||
        !ConnectWithin(connection.Get(), address, static_cast<int>(client.connectLimitMs)))
        return trace.Fail(RTSP_CONNECT_FAILED, "EXIT : %s :Connection Error \n");
    const int32_t result = OpenStream(trace, client, connection.Get(), made.stream);
    if (result == RTSP_SUCCESS) made.socket = connection.Release();
    return result;
}

// A thread that serves the old connection goes on with the new one.
void AdoptSocket(RTSPClient &client, NewConnection made) {
    const int32_t socket = made.socket;
    free(std::exchange(client.aggregateUrl, nullptr)); // the last server's: no other one hears of it
    SendAtOnce(socket);
    JoinEndedInterleavedThread(client.media);
    BeginConnection(client.media.connection);
    if (made.stream) AddByteStream(client.media.connection.streams, std::move(made.stream));
    client.connectionReplies = false;
    const int32_t earlier = client.media.connection.socket.exchange(socket);
    if (earlier >= 0) {
        client.supersededSockets[client.supersededCount++] = earlier;
        FreeIdleRings(client.media);
    }
    WakeConnectionThread(client.media);
    SettleSession(client.media);
}

// Nobody reads it any more, so that it need not be kept as those are that another one has taken the place of.
void CloseEnded(MediaSession &media) {
    const int32_t ended = media.connection.socket.exchange(-1);
    SettleSession(media); // while the number is not another's
    ForgetConnection(media.connection);
    EndByteStream(media.connection.streams, ended);
    CloseSock(ended);
}

} // namespace

int32_t rtsptap::ConnectToServer(const CallTrace &trace, RTSPClient &client, int limitMs, NewConnection &made) {
    AddressList server{.count = 1};
    server.items[0] = client.media.server.Get();
    Address connected;
    UniqueSocket socket(ConnectToFirst(server, limitMs, connected));
    if (!socket.IsOpen()) return trace.Fail(RTSP_CONNECT_FAILED, "EXIT : %s :Connection Error \n");
    const int32_t result = OpenStream(trace, client, socket.Get(), made.stream);
    if (result == RTSP_SUCCESS) made.socket = socket.Release();
    return result;
}

int32_t rtsptap::ConnectAgain(const CallTrace &trace, RTSPClient &client) {
    const int reply = client.media.connection.replyLimitMs;
    const auto connect = static_cast<int>(client.connectLimitMs);
    NewConnection made;
    if (const int32_t result = ConnectToServer(trace, client, connect > 0 ? std::min(connect, reply) : reply, made);
        result != RTSP_SUCCESS)
        return result;
    RtpRtspInfoPrint("Connected again, the server had closed the connection \n");
    CloseEnded(client.media);
    HeapText aggregate(std::exchange(client.aggregateUrl, nullptr)); // the server is the same one
    AdoptSocket(client, std::move(made));
    client.aggregateUrl = aggregate.release();
    return RTSP_SUCCESS;
}

void rtsptap::BecomeConnected(RTSPClient &client, NewConnection connection, const Address &address,
                              HeapText requestUrl) {
    free(std::exchange(client.requestUrl, requestUrl.release()));
    client.media.server.Set(address);
    client.media.mtuSize = kDefaultMtuSize;
    client.media.packetCounter = 1;
    AdoptSocket(client, std::move(connection));
    client.connected = 1;
}

int32_t RTSPClientConnect(intptr_t clientHandle, const char *serverIp, uint16_t serverPort, const char *sessionName,
                          uint32_t dataProto, intptr_t mtuCallBack) {
    const ClientTrace trace(__func__, clientHandle);
    DebugPrint(kDebugEntry, "\tInput: clientHandle : %d\n", PrintableHandle(clientHandle));
    DebugPrint(kDebugEntry, "\tInput: serverIp : %s\n", serverIp == nullptr ? "" : serverIp);
    DebugPrint(kDebugEntry, "\tInput: serverPort : %d\n", serverPort);
    DebugPrint(kDebugEntry, "\tInput: sessionName : %s\n", sessionName == nullptr ? "" : sessionName);
    DebugPrint(kDebugEntry, "\tInput: dataProto : %d \n", static_cast<int>(dataProto));
    if (!AreArgumentsValid(clientHandle, serverIp, serverPort, sessionName, dataProto))
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s: Invalid input argument\n");
    RTSPClient *const client = LiveClient(clientHandle);
    if (client == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid client handle\n");
    if (const int32_t result = RefuseWhilePending(trace, *client); result != RTSP_SUCCESS) return result;
    if (client->media.audioBufferSize < 1 || client->media.videoBufferSize < 1)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s : Please set Audio and Video buffer sizes\n");

    char url[kLongestServerIp + sizeof client->sessionName + sizeof "rtsp://:65535/"];
    snprintf(url, sizeof url, "rtsp://%s:%d/%s", serverIp, serverPort, sessionName);
    HeapText requestUrl = DuplicateText(url);
    if (!requestUrl) return trace.Fail(RTSP_NO_MEMORY, "EXIT : %s :Memory Allocation Failed\n");
    const Address address = ReadAddress(serverIp, serverPort);
    const StreamPlan plan = {.host = serverIp, .requestUrl = url};
    if (const int32_t result = ChooseStream(trace, *client, plan); result != RTSP_SUCCESS) return result;
    NewConnection connection;
    if (const int32_t result = OpenConnection(trace, *client, address, connection); result != RTSP_SUCCESS)
        return result;

    CopyText(client->sessionName, sessionName);
    client->mtuCallBack = mtuCallBack;
    client->isOpened = false;
    client->media.dataProto = dataProto;
    BecomeConnected(*client, std::move(connection), address, std::move(requestUrl));
    return RTSP_SUCCESS;
}

int32_t RTSPTapSetDataProto(intptr_t clientHandle, uint32_t dataProto) {
    const ClientTrace trace(__func__, clientHandle);
    if (clientHandle == 0 || dataProto > DATA_PROTO_TCP)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    RTSPClient *const client = LiveClient(clientHandle);
    if (client == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid client handle\n");
    if (const int32_t result = RefuseWhilePending(trace, *client); result != RTSP_SUCCESS) return result;
    if (client->connected != 1)
        return trace.Fail(RTSP_NOT_CONNECTED, "EXIT : %s :Client is created but is not connected to server\n");
    if (client->media.state >= CLIENT_READY_STATE)
        return trace.Fail(RTSP_INVALID_STATE, "EXIT : %s :A stream is set up already\n");
    client->media.dataProto = dataProto;
    return RTSP_SUCCESS;
}

// ---- from a created client to playing in one call, with one answer to a challenge ----

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
    const ClientTrace trace(__func__, clientHandle);
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
