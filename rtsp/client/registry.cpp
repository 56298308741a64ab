#include "rtsp/client/registry.h"

#include "platform/call_trace.h"
#include "platform/scope.h"
#include "rtsp/client/client_record.h"

namespace rtsptap {

RTSPClient *gblRTSPClientList = nullptr;
pthread_mutex_t gblRTSPClientListLock;

namespace {

// Serialises creation and destruction, and with them the life of gblRTSPClientListLock. Never destroyed.
pthread_mutex_t lifecycleLock = PTHREAD_MUTEX_INITIALIZER;

// Guards gblRTSPClientList and every next and prev. Validation only reads, so it never waits for a SETUP
// that holds gblRTSPClientListLock. Taken last; never destroyed.
pthread_rwlock_t linksLock = PTHREAD_RWLOCK_INITIALIZER;

class ScopedLinks {
public:
    enum class Access { kRead, kWrite };
    explicit ScopedLinks(Access access) {
        access == Access::kRead ? pthread_rwlock_rdlock(&linksLock) : pthread_rwlock_wrlock(&linksLock);
    }
    ~ScopedLinks() { pthread_rwlock_unlock(&linksLock); }
    ScopedLinks(const ScopedLinks &) = delete;
    ScopedLinks &operator=(const ScopedLinks &) = delete;
};

void AppendToList(RTSPClient *client) {
    const ScopedLinks links(ScopedLinks::Access::kWrite);
    RTSPClient *tail = gblRTSPClientList;
    while (tail != nullptr && tail->next != nullptr) tail = tail->next;
    client->prev = tail;
    (tail == nullptr ? gblRTSPClientList : tail->next) = client;
}

bool IsLinked(const RTSPClient *client) {
    for (const RTSPClient *at = gblRTSPClientList; at != nullptr; at = at->next)
        if (at == client) return true;
    return false;
}

bool RemoveFromList(RTSPClient *client) {
    const ScopedLinks links(ScopedLinks::Access::kWrite);
    if (!IsLinked(client)) return false;
    (client->prev == nullptr ? gblRTSPClientList : client->prev->next) = client->next;
    if (client->next != nullptr) client->next->prev = client->prev;
    client->next = client->prev = nullptr;
    return true;
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
    AppendToList(client);
    DebugPrint(kDebugEntry, "\tUnLocking Global Client List \n");
    if (MutexUnlock(&gblRTSPClientListLock) == -1) {
        RemoveFromList(client);
        DestroyListLockWhenEmpty();
        return RTSP_UNLOCK_FAILED;
    }
    return RTSP_SUCCESS;
}

bool UnlinkClient(RTSPClient *client) {
    DebugPrint(kDebugEntry, "\tRemoving the Client from the client list \n");
    const ScopedLock lifecycle(lifecycleLock);
    if (LiveClient(reinterpret_cast<intptr_t>(client)) == nullptr) return false;
    MutexLock(&gblRTSPClientListLock);
    const bool removed = RemoveFromList(client);
    MutexUnlock(&gblRTSPClientListLock);
    DestroyListLockWhenEmpty();
    return removed;
}

RTSPClient *LiveClient(intptr_t clientHandle) {
    auto *const client = reinterpret_cast<RTSPClient *>(clientHandle);
    const ScopedLinks links(ScopedLinks::Access::kRead);
    return client != nullptr && IsLinked(client) ? client : nullptr;
}

} // namespace rtsptap

using namespace rtsptap;

int32_t ValidateRTSPClientHandle(intptr_t clientHandle) {
    return LiveClient(clientHandle) == nullptr ? RTSP_FAILURE : RTSP_SUCCESS;
}
