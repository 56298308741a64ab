#include "rtsp/client/client.h"

#include "platform/handle_table.h"
#include "platform/printers.h"
#include "platform/system.h"
#include "rtp/interleaved/connection.h"
#include "rtp/media_session.h"
#include "rtp/stream.h"
#include "rtsp/client/exchange.h"
#include "rtsp/client/progress.h"
#include "rtsp/message/request.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

namespace rtsptap {

RTSPClient *gblRTSPClientList = nullptr;
pthread_mutex_t gblRTSPClientListLock;

namespace {

// Serialises creation and destruction, and with them the life of gblRTSPClientListLock. Guards the list, every next
// and prev, and changes of the handle table. Never destroyed.
pthread_mutex_t lifecycleLock = PTHREAD_MUTEX_INITIALIZER;

bool Register(RTSPClient *client) {
    if (!AddHandle(reinterpret_cast<intptr_t>(client))) return false;
    RTSPClient *tail = gblRTSPClientList;
    while (tail != nullptr && tail->next != nullptr) tail = tail->next;
    client->prev = tail;
    (tail == nullptr ? gblRTSPClientList : tail->next) = client;
    return true;
}

void Deregister(RTSPClient *client) {
    RemoveHandle(reinterpret_cast<intptr_t>(client));
    (client->prev == nullptr ? gblRTSPClientList : client->prev->next) = client->next;
    if (client->next != nullptr) client->next->prev = client->prev;
    client->next = client->prev = nullptr;
}

// The list lock lives only while a client does. Called under lifecycleLock, the list's only writer.
void DestroyListLockWhenEmpty() {
    if (gblRTSPClientList != nullptr) return;
    DebugPrint(kDebugEntry, "\tDestroying Client List Lock\n");
    MutexDestroy(&gblRTSPClientListLock);
}

} // namespace

int32_t LinkClient(RTSPClient *client) {
    const ScopedLock lifecycle(lifecycleLock);
    if (gblRTSPClientList == nullptr) {
        DebugPrint(kDebugEntry, "\tInitializing Global Client List Lock \n");
        if (MutexInit(&gblRTSPClientListLock) == -1) return RTSP_MUTEX_FAILED;
    }
    DebugPrint(kDebugEntry, "\tLocking Global Client List \n");
    if (MutexLock(&gblRTSPClientListLock) == -1) {
        DestroyListLockWhenEmpty();
        return RTSP_LOCK_FAILED;
    }
    const bool registered = Register(client);
    DebugPrint(kDebugEntry, "\tUnLocking Global Client List \n");
    const bool unlocked = MutexUnlock(&gblRTSPClientListLock) != -1;
    if (registered && unlocked) return RTSP_SUCCESS;
    if (registered) Deregister(client);
    DestroyListLockWhenEmpty();
    return registered ? RTSP_UNLOCK_FAILED : RTSP_NO_MEMORY;
}

bool UnlinkClient(RTSPClient *client) {
    DebugPrint(kDebugEntry, "\tRemoving the Client from the client list \n");
    const ScopedLock lifecycle(lifecycleLock);
    if (LiveClient(reinterpret_cast<intptr_t>(client)) == nullptr) return false;
    MutexLock(&gblRTSPClientListLock);
    Deregister(client);
    MutexUnlock(&gblRTSPClientListLock);
    DestroyListLockWhenEmpty();
    return true;
}

RTSPClient *LiveClient(intptr_t clientHandle) {
    return IsLiveHandle(clientHandle) ? reinterpret_cast<RTSPClient *>(clientHandle) : nullptr;
}

} // namespace rtsptap

using namespace rtsptap;

int32_t ValidateRTSPClientHandle(intptr_t clientHandle) {
    return LiveClient(clientHandle) == nullptr ? RTSP_FAILURE : RTSP_SUCCESS;
}

namespace {

constexpr uint32_t kLargestRefusedMtu = 100; // bytes

// Writing to a connection that the server closed must return an error, not end the process.
void IgnoreBrokenPipesOnce() {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, HandleSignal);
}

void CloseSupersededSockets(RTSPClient &client) {
    for (std::size_t i = 0; i < client.supersededCount; ++i) CloseSock(client.supersededSockets[i]);
    free(client.supersededSockets);
}

// The threads have ended and nobody finds the client any more.
void ReleaseClient(RTSPClient *client) {
    freeRequestMsg(client->requestMsg);
    ReleaseResponse(*client);
    ReleaseRecvBuffer(client->lastReply);
    free(client->receivedSDP);
    free(client->aggregateUrl);
    free(client->requestUrl);
    free(client->location);
    ReleaseSdpFields(client->sdpFieldList);
    ReleaseSession(client->media);
    CloseSupersededSockets(*client);
    ReleaseStreamWays(client->streams);
    for (Authentication *const credentials : {&client->authentication, &client->keepAlive.authentication})
        explicit_bzero(credentials->password, sizeof credentials->password);
    ForgetCredentials(client->credentials);
    delete client;
}

int32_t FailCreation(const CallTrace &trace, int32_t result) {
    switch (result) {
    case RTSP_NO_MEMORY:
        return trace.Fail(result, "EXIT : %s : Memory Allocation Failed\n");
    case RTSP_MUTEX_FAILED:
        return trace.Fail(result, "EXIT : %s: Can not create mutex to lock RTSP client list.\n");
    case RTSP_LOCK_FAILED:
        return trace.Fail(result, "EXIT : %s: Unable to Lock Global RTSP Client List \n");
    default:
        return trace.Fail(result, "EXIT : %s: Unable to UnLock Global RTSP Client List \n");
    }
}

} // namespace

intptr_t RTSPClientCreate(void) {
    const CallTrace trace(__func__);
    IgnoreBrokenPipesOnce();
    std::unique_ptr<RTSPClient> client(new (std::nothrow) RTSPClient{});
    if (client == nullptr) return trace.Fail(RTSP_NO_MEMORY, "EXIT : %s : Memory Allocation Failed\n");
    PrepareKeepAlive(*client);
    if (const int32_t result = LinkClient(client.get()); result != RTSP_SUCCESS) return FailCreation(trace, result);
    RtpRtspInfoPrint("New Client Created Successfully .... \n");
    return reinterpret_cast<intptr_t>(client.release());
}

int32_t RTSPClientDestroy(intptr_t clientHandle) {
    const ClientTrace trace(__func__, clientHandle);
    if (clientHandle == 0) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    auto *const client = reinterpret_cast<RTSPClient *>(clientHandle);
    // Unlinked first: from here on no other call finds the client.
    if (!UnlinkClient(client)) return trace.Fail(RTSP_NO_SUCH_CLIENT, "EXIT : %s :No such client found\n");
    AbandonOperation(*client);
    CloseConnectionAndStreams(client->media);
    DebugPrint(kDebugEntry, "\tFreeing Client Memory \n");
    ReleaseClient(client);
    RtpRtspInfoPrint("\tClient Destroyed Successfully .... \n");
    ForgetPrinter(clientHandle);
    return RTSP_SUCCESS;
}

int32_t RTSPClientSetMTUSize(intptr_t clientHandle, uint32_t mtuSize) {
    const ClientTrace trace(__func__, clientHandle);
    if (clientHandle == 0 || mtuSize <= kLargestRefusedMtu) {
        RtpRtspErrorPrint("EXIT : %s :Invalid input argument : %d\n", trace.Function(), static_cast<int>(mtuSize));
        return RTSP_INVALID_ARGUMENT;
    }
    RTSPClient *const client = LiveClient(clientHandle);
    if (client == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid client handle\n");
    client->media.mtuSize = mtuSize;
    return RTSP_SUCCESS;
}

namespace {

bool HasConnected(const RTSPClient &client) {
    return client.connected != 0 || client.cSeq != 0 || client.media.streamList != nullptr;
}

} // namespace

int32_t RTSPTapSetRtcpCallback(intptr_t clientHandle, RTSPTapRtcpCallback callback, void *context) {
    const ClientTrace trace(__func__, clientHandle);
    RTSPClient *const client = LiveClient(clientHandle);
    if (client == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid Client Handle\n");
    if (HasConnected(*client)) return trace.Fail(RTSP_FAILURE, "EXIT : %s :Client has connected before\n");
    client->media.rtcpCallback = callback;
    client->media.rtcpContext = context;
    return RTSP_SUCCESS;
}

int32_t RTSPTapSetReportCallback(intptr_t clientHandle, RTSPTapReportCallback callback, void *context) {
    const ClientTrace trace(__func__, clientHandle);
    RTSPClient *const client = LiveClient(clientHandle);
    if (client == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid Client Handle\n");
    if (HasConnected(*client)) return trace.Fail(RTSP_FAILURE, "EXIT : %s :Client has connected before\n");
    client->media.reportCallback = callback;
    client->media.reportContext = context;
    return RTSP_SUCCESS;
}

int32_t RTSPTapSetCredentials(intptr_t clientHandle, const char *user, const char *password) {
    const ClientTrace trace(__func__, clientHandle);
    RTSPClient *const client = LiveClient(clientHandle);
    if (client == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid client handle\n");
    const std::string_view texts[] = {user != nullptr ? user : "", password != nullptr ? password : ""};
    for (const std::string_view text : texts) {
        if (text.size() >= kCredentialBytes)
            return trace.Fail(RTSPTAP_OUT_OF_RANGE, "EXIT : %s :User name or password is too long\n");
        if (HasControlCharacter(text))
            return trace.Fail(RTSPTAP_OUT_OF_RANGE, "EXIT : %s :User name or password has a control character\n");
    }
    if (user == nullptr)
        ForgetCredentials(client->credentials);
    else
        StoreCredentials(client->credentials, texts[0], texts[1]);
    return RTSP_SUCCESS;
}

int32_t RTSPTapForgetChallenge(intptr_t clientHandle) {
    const ClientTrace trace(__func__, clientHandle);
    RTSPClient *const client = LiveClient(clientHandle);
    if (client == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid client handle\n");
    client->authentication.required = 0;
    return RTSP_SUCCESS;
}
