// The client: one RTSP session with one server, from RTSPClientCreate to RTSPClientDestroy.
// A client handle is the address of this record. Fields are grouped by who touches them; the receive
// threads only ever see the atomics. Released by RTSPClientDestroy (lifecycle.cpp), nowhere else.
#pragma once

#include "rtp/receive_turn.h"
#include "rtsptap.h"
#include "rtsptap_extended.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace rtsptap {

struct InterleavedReader;
struct RecvBuffer;
struct RequestMsg;
struct ResponseMsg;
struct RTSPStreamInfo;
struct SDPField;

inline constexpr uint32_t kDefaultMtuSize = 33000; // bytes; connect and the standalone receiver set it

struct RTSPClient {
    // ---- Application thread only ----
    char sessionName[64] = {};          // path of the aggregate URI
    char serverIp[32] = {};             // dotted IPv4 text
    char sessionId[33] = {};            // from the SETUP reply, at most 32 characters
    char multicastIp[33] = {};          // destination of a multicast SETUP reply
    uint16_t multicastPort = 0;         // host order
    uint16_t serverPort = 0;            // RTSP port of the server, host order
    uint32_t cSeq = 0;                  // CSeq of the last generated request
    RequestMsg *requestMsg = nullptr;   // owned; null between exchanges
    ResponseMsg *responseMsg = nullptr; // owned; null between exchanges
    RecvBuffer *lastReply = nullptr;    // owned: raw first reply of the last exchange; null when none came
    char *receivedSDP = nullptr;        // owned, free()
    SDPField *sdpFieldList = nullptr;   // owned: the session-level lines
    intptr_t mtuCallBack = 0;           // stored, never called
    void *rtcpContext = nullptr;        // constant once connected, like the next, which threads with RTCP call
    RTSPTapRtcpCallback rtcpCallback = nullptr;
    uint32_t authRequired = 0; // 1 after a 401: every request carries Authorization
    char username[128] = {};
    char password[128] = {};
    char authType[128] = {}; // scheme word of the last challenge
    char nonce[128] = {};
    char realm[256] = {};
    int32_t *supersededSockets = nullptr; // owned, free(): earlier RTSP sockets, open until Destroy
    std::size_t supersededCount = 0;

    // ---- Written by the application thread, read by the receive threads ----
    std::atomic<uint32_t> connected{0};
    std::atomic<uint32_t> state{CLIENT_INIT_STATE};
    std::atomic<int32_t> streamCount{0}; // streams of the description in force
    std::atomic<uint32_t> mtuSize{0};    // bytes; largest packet received in one piece
    std::atomic<int32_t> rtspSocket{-1};
    std::atomic<uint32_t> serverAddress{0}; // serverIp in network order
    std::atomic<uint32_t> dataProto{DATA_PROTO_UDP};
    std::atomic<int32_t> targetLatency{0};             // ms; 0 switches latency control off
    std::atomic<int32_t> underflowLimit{0};            // ms
    std::atomic<int32_t> overflowLimit{0};             // ms
    std::atomic<int32_t> videoBufferSize{0};           // bytes of a video stream's receive ring
    std::atomic<int32_t> audioBufferSize{0};           // bytes of an audio stream's receive ring
    std::atomic<bool> awaitingReply{false};            // an exchange waits: a paused interleaved thread reads on
    std::atomic<uint32_t> exchangeCount{0};            // exchanges begun
    std::atomic<RTSPStreamInfo *> streamList{nullptr}; // append-only while threads live; owned
    std::atomic<uint32_t> channelChanges{1};           // how often the list, or a stream's channel, has changed
    // Owned: of ended sessions, kept for packets and descriptions.
    std::atomic<RTSPStreamInfo *> retiredStreams{nullptr};

    // ---- Written by the receive threads ----
    std::atomic<uint32_t> packetCounter{0};      // RTP packets parsed over all streams
    std::atomic<RecvBuffer *> recvData{nullptr}; // a reply on its way to the exchange; changes owner by exchange()

    // ---- Interleaved connection ----
    ReceiveTurn turn;                         // who serves the connection while a thread of the client's does
    InterleavedReader *interleaved = nullptr; // owned; entered in that turn, and by an exchange when nobody serves
    pthread_mutex_t sendLock = PTHREAD_MUTEX_INITIALIZER;     // guards writing to rtspSocket; a leaf
    pthread_mutex_t replyLock = PTHREAD_MUTEX_INITIALIZER;    // belongs to replyCondition; a leaf
    pthread_cond_t replyCondition = PTHREAD_COND_INITIALIZER; // recvData was set

    // ---- Guarded by the registry lock ----
    RTSPClient *next = nullptr;
    RTSPClient *prev = nullptr;
};

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
