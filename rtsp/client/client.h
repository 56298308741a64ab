// The client: one RTSP session with one server, from RTSPClientCreate to RTSPClientDestroy; and the process-wide
// list of live ones. A client handle is the address of this record. Fields are the application thread's, but for
// the media session's, whose groups say who shares them. Released by RTSPClientDestroy, nowhere else.
#pragma once

#include "rtp/interleaved/connection.h"
#include "rtp/media_session.h"
#include "rtsp/client/byte_stream.h"
#include "rtsp/client/keep_alive.h"
#include "rtsp/message/authentication.h"
#include "rtsp/message/credentials.h"
#include "rtsptap_extended.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace rtsptap {

inline constexpr int64_t kFirstCommonPort = 2000; // local UDP ports that all clients count up together
inline constexpr int64_t kLastCommonPort = 59999;

inline constexpr std::size_t kSessionIdLength = 32;
inline constexpr int64_t kNoReplyCap = INT64_MAX;

struct Operation; // progress.cpp
struct RequestMsg;
struct ResponseMsg;
struct SDPField;

// The stream whose description was asked for last: it leads to the next one.
struct StreamAskedFor {
    RTSPStreamInfo *stream = nullptr;
    int32_t number = 0;
    uint32_t changes = 0; // of the list then
};

struct RTSPClient {
    MediaSession media; // first: the handle is its address, too

    // ---- The server and its session ----
    std::atomic<uint32_t> connected{0};
    char *requestUrl = nullptr; // owned, free(): of the whole session, until a description says otherwise
    bool isOpened = false;      // by its URL, not by server, port and path
    char sessionName[64] = {};  // the path that the program gave
    char sessionId[256] = {};   // from the SETUP reply, at most kSessionIdLength characters as a rule
    char multicastIp[64] = {};  // destination of a multicast SETUP reply
    uint16_t multicastPort = 0; // host order
    intptr_t mtuCallBack = 0;   // stored, never called
    Authentication authentication;
    Credentials credentials;
    int64_t connectLimitMs = 0;             // 0: the system's
    int64_t replyLimitMs = kReplyTimeoutMs; // of every method
    int64_t teardownLimitMs = 0;            // of TEARDOWN; 0: as the others
    int64_t replyCapMs = kNoReplyCap;       // meanwhile no limit of a reply is longer
    int64_t firstPort = kFirstCommonPort;   // local UDP ports: these two stand for the counting of all clients
    int64_t lastPort = kLastCommonPort;
    int64_t lastPortTaken = 0; // within ports of the client's own
    int64_t transport = RTSPTAP_TRANSPORT_DEFAULT;
    int64_t silenceLimitMs = 3000;           // how long media may be missing after PLAY
    bool mayFallBack = false;                // the session under way: from UDP to TCP
    bool asksMulticast = false;              // the same: its streams are to come to groups
    StreamWays streams;                      // between sockets and bytes
    char userAgent[128] = "Rtp Rtsp Client"; // of requests whose header list has none

    // ---- Exchanges ----
    bool connectionReplies = false;     // a reply has come on the connection under way
    std::atomic<uint32_t> cSeq{0};      // CSeq of the last generated request
    RequestMsg *requestMsg = nullptr;   // owned; null between exchanges
    ResponseMsg *responseMsg = nullptr; // owned; null between exchanges
    RecvBuffer *lastReply = nullptr;    // owned: raw first reply of the last exchange; null when none came
    int32_t lastStatus = 0;             // of the last reply that was classified
    char *location = nullptr;           // owned, free(): where the last redirection led; null: it did not say

    Operation *operation = nullptr;               // owned: the pending one; null: none is
    int32_t operationResult = RTSPTAP_NONE_BEGUN; // of the last one
    int operationError = 0;                       // errno behind it

    KeepAlive keepAlive; // has groups of its own

    // ---- The description ----
    char *receivedSDP = nullptr;      // owned, free()
    SDPField *sdpFieldList = nullptr; // owned: the session-level lines
    char *aggregateUrl = nullptr;     // owned, free(): request URI behind DESCRIBE; null: requestUrl
    StreamAskedFor lastDescribed;

    // ---- Earlier connections ----
    int32_t *supersededSockets = nullptr; // owned, free(): open until Destroy
    std::size_t supersededCount = 0;

    // ---- Guarded by the lifecycle lock ----
    RTSPClient *next = nullptr;
    RTSPClient *prev = nullptr;
};

static_assert(std::is_standard_layout_v<RTSPClient> && offsetof(RTSPClient, media) == 0);

// First client in creation order; guarded by the private lifecycle lock.
extern RTSPClient *gblRTSPClientList;

// Exists only while a client exists. Guards the choice of UDP ports (gblClientRtspUdpPort) and is held
// while a client is linked or unlinked.
extern pthread_mutex_t gblRTSPClientListLock;

// 0 or RTSP_MUTEX_FAILED, RTSP_LOCK_FAILED, RTSP_UNLOCK_FAILED, RTSP_NO_MEMORY; after a failure nothing is linked.
int32_t LinkClient(RTSPClient *client);
// True when the client was in the list; of two threads unlinking the same handle one gets true.
bool UnlinkClient(RTSPClient *client);

// The client behind a handle, or null when it is not the address of a live client. Any thread, no lock.
RTSPClient *LiveClient(intptr_t clientHandle);

} // namespace rtsptap
