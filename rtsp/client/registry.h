// The process-wide list of live clients, its locks, and handle validation.
// Any thread may validate, without a lock; clients come and go under the registry lock.
#pragma once

#include "rtsptap.h"

namespace rtsptap {

struct RTSPClient;

// First client in creation order; guarded by the private registry lock.
extern RTSPClient *gblRTSPClientList;

// Exists only while a client exists. Guards the choice of UDP ports (gblClientRtspUdpPort) and is held
// while a client is linked or unlinked.
extern pthread_mutex_t gblRTSPClientListLock;

// 0 or RTSP_MUTEX_FAILED, RTSP_LOCK_FAILED, RTSP_UNLOCK_FAILED, RTSP_NO_MEMORY; after a failure nothing is linked.
int32_t LinkClient(RTSPClient *client);
// True when the client was in the list; of two threads unlinking the same handle one gets true.
bool UnlinkClient(RTSPClient *client);

// The client behind a handle, or null when it is not the address of a live client.
RTSPClient *LiveClient(intptr_t clientHandle);

} // namespace rtsptap
