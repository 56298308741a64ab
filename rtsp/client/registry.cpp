#include "rtsp/client/registry.h"

#include "platform/call_trace.h"
#include "platform/scope.h"
#include "rtsp/client/client_record.h"
#include "rtsp/client/handle_table.h"

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
