// What reception needs of an RTSP session, or of the ports of a standalone receiver: its streams, its limits, and
// the connection that frames come over. The client embeds one; nothing here knows of requests, descriptions or
// states before PLAY. Released by ReleaseSession.
#pragma once

#include "dialect/dialect.h"
#include "platform/address.h"
#include "platform/handle_table.h"
#include "rtp/interleaved/connection.h"
#include "rtp/loop/watch.h"
#include "rtsptap_extended.h"

#include <atomic>
#include <cstdint>

namespace rtsptap {

struct Fiber;
struct ProtectionMaker;
struct ReceiveRing;
struct RTSPStreamInfo;

inline constexpr int32_t kLongestNapUs = 1000;
inline constexpr int32_t kOrderOnly = -1; // as a latency: there is none, but missing packets are waited for

inline constexpr uint32_t kDefaultMtuSize = 33000; // bytes; connect and the standalone receiver set it

struct MediaSession {
    // ---- Constant once connected ----
    void *rtcpContext = nullptr;                // handed to the callback
    RTSPTapRtcpCallback rtcpCallback = nullptr; // called by whoever receives or sends RTCP
    void *reportContext = nullptr;              // the same
    RTSPTapReportCallback reportCallback = nullptr;
    Dialect dialect; // what is accepted; counts what was met

    // ---- Written by the application thread, read by the receive threads ----
    std::atomic<uint32_t> state{CLIENT_INIT_STATE}; // RTSPClientState; in the first one what is paused is over
    std::atomic<int32_t> streamCount{0};            // streams of the description in force
    std::atomic<uint32_t> mtuSize{0};               // bytes; largest packet received in one piece
    std::atomic<uint32_t> dataProto{DATA_PROTO_UDP};
    std::atomic<int64_t> receiveNapUs{-1};    // how long a reader lets packets gather; -1: as targetLatency says
    std::atomic<int32_t> targetLatency{0};    // ms; 0: nothing is held back; or kOrderOnly
    std::atomic<int64_t> reorderWaitMs{0};    // how long a missing packet is waited for
    std::atomic<int64_t> dropsDuplicates{0};  // 0 or 1
    std::atomic<int32_t> underflowLimit{0};   // ms
    std::atomic<int32_t> overflowLimit{0};    // ms
    std::atomic<int32_t> videoBufferSize{0};  // bytes of a video stream's receive ring
    std::atomic<int32_t> audioBufferSize{0};  // bytes of an audio stream's receive ring
    std::atomic<int64_t> packetLimitMs{5000}; // how long a packet is waited for
    std::atomic<RTSPStreamInfo *> streamList{nullptr}; // append-only while threads live; owned
    std::atomic<uint32_t> channelChanges{1};           // how often the list, or a stream's channel, has changed
    // Owned: of ended sessions, kept for packets and descriptions.
    std::atomic<RTSPStreamInfo *> retiredStreams{nullptr};
    std::atomic<int32_t> tornDownStreams{0}; // how many the last session had, until the next one has some
    std::atomic<uint32_t> interrupts{0};     // how often readers were called off; by any thread, also by signals
    SharedAddress server;                    // of the RTSP server: reports go to a port of it

    // ---- Application thread: of streams that are made later ----
    int64_t keepsStatistics = 0; // 0 or 1, as the next ones
    int64_t keepsTimes = 0;      // of their packets
    int64_t trueReports = 0;
    int64_t asksAgain = 0;                 // for packets that are missing
    ProtectionMaker *protection = nullptr; // of those that are described as protected; one use is ours; null: none

    // ---- Application thread ----
    int64_t threads = 1;              // 0: none of the library's; the program's own calls receive
    LoopPlace loop;                   // of a session without threads
    Fiber *pending = nullptr;         // of the operation under way that the program does not wait for; null: none
    MulticastWays multicast;          // how groups are joined
    char listenAddress[64] = {};      // of streams without RTSP: a group, or one of ours; empty: every one of IPv4
    int64_t filtersSources = 0;       // 0 or 1: over UDP only the server is received from
    int64_t receiveBuffer = 0;        // bytes asked for each RTP socket; 0: what its kind has by default
    int64_t receiveBufferGranted = 0; // bytes that the last one got

    // ---- Written by whoever receives ----
    std::atomic<uint32_t> packetCounter{0};  // RTP packets parsed over all streams
    std::atomic<int32_t> doubtedGoodbyes{0}; // streams with one
    std::atomic<int64_t> duplicatesDropped{0};
    std::atomic<int64_t> lateDropped{0}; // behind others that have been handed out after their wait

    Connection connection; // RTSP's; has groups of its own
};

// The session behind a client handle, or null when it is not the handle of a live client. Any thread, no lock: a
// client begins with its session, so the handle is the address of both.
inline MediaSession *LiveSession(intptr_t clientHandle) {
    return IsLiveHandle(clientHandle) ? reinterpret_cast<MediaSession *>(clientHandle) : nullptr;
}

// Its program's own calls receive: one thread at a time calls for it.
inline bool IsThreadless(const MediaSession &session) { return session.threads == 0; }

// With none, what the program waits on is left alone.
void SetThreads(MediaSession &session, int64_t threads);

// The handle that a session is known by.
inline intptr_t HandleOf(const MediaSession &session) { return reinterpret_cast<intptr_t>(&session); }

// A new record at the tail of the streamList, counted in streamCount, its session set; null when memory is short.
// Its locks are still to be made. A caller that appends many names the stream it appended last, from which the tail
// is looked for: a description may open tens of thousands of sections. Application thread.
RTSPStreamInfo *AppendStream(MediaSession &session, RTSPStreamInfo *last = nullptr);

// The stream's RTP channel on an interleaved connection, also while frames come. Application thread.
void SetChannel(RTSPStreamInfo &stream, uint32_t channel);

// ---- Looking for a stream: any thread ----

// Stream number 1 and up in description order; null when the list is shorter.
RTSPStreamInfo *FindStreamByNumber(const MediaSession &session, int32_t number);
// The stream with that ring, also of an ended session; null when it is not one of this session's.
RTSPStreamInfo *FindStreamByRing(const MediaSession &session, const ReceiveRing *ring);
// The first of the streamCount streams with that codec; null when there is none.
RTSPStreamInfo *FindStreamByCodec(const MediaSession &session, int32_t codecType);
// The last of them.
RTSPStreamInfo *FindLastStreamByCodec(const MediaSession &session, int32_t codecType);

// ---- Receive threads and sockets: started by PLAY, stopped by TEARDOWN and Destroy; application thread ----

// Starts the thread that serves the stream's RTP and RTCP over UDP, or hands over to a new one where it runs.
void StartUdpThread(RTSPStreamInfo &stream);
// Starts the thread that serves the whole interleaved connection, on the session's first stream.
void StartInterleavedThread(MediaSession &session);

// Where the thread has seen the end of the connection: it is gone when this returns, and nobody counts on it.
void JoinEndedInterleavedThread(const MediaSession &session);

// Stops it. A `socket` of -1 leaves the connection open and unread.
void StopInterleavedThread(const MediaSession &session, int socket);
// True while a thread reads the connection.
bool ConnectionIsServed(const MediaSession &session);

// True while anything receives for the session, or has until its end.
bool IsServed(const MediaSession &session);

// It looks around: it is another connection.
void WakeConnectionThread(const MediaSession &session);

// Before frames are taken: those of every stream are, but where a thread receives datagrams, for a session may
// change its protocol while they run.
void ChooseStreamsForFrames(const MediaSession &session);

// Closes the RTSP connection, then stops the thread of every stream and closes its sockets.
void CloseConnectionAndStreams(MediaSession &session);

// Close one socket of a stream; a thread that receives on it is stopped.
void CloseRtpSocket(RTSPStreamInfo &stream);
void CloseRtcpSocket(RTSPStreamInfo &stream);

// Asks for the socket receive buffer that the session is set to, or for `byDefault` bytes, 0 of which leave the
// system's; notes what was granted. Packets of a client that counts them are to come with their time. False when
// the system refuses.
bool SizeReceiveBuffer(MediaSession &session, int socket, int byDefault);

// ---- Settings of what is asked with every packet: application thread ----

void SetTargetLatency(MediaSession &session, int32_t ms);
void SetReorderWait(MediaSession &session, int64_t ms);
void SetDropsDuplicates(MediaSession &session, int64_t drops);

// ---- Why nothing more comes ----

// Whoever finds that nothing more comes for a stream, or for all of a session, says why: a code of RTSPTapResult,
// of which the first one counts. Any thread.
void EndReception(RTSPStreamInfo &stream, int32_t why);
void EndReceptions(const MediaSession &session, int32_t why);
// PLAY: packets may come again.
void BeginReception(RTSPStreamInfo &stream);

// ---- The end of a session: application thread ----

// The streams of an ended session are kept for those who hold their packets or descriptions. What comes next starts
// with stream 1 again, so they leave the list.
void RetireEndedStreams(MediaSession &session);

// After a TEARDOWN, when no thread of the session lives any more: frees what its streams took, and retires them.
// Their descriptions stay until Destroy, a ring until the application has freed the last packet in it. One that it
// was only shown stays until the next session ends.
void EndStreams(MediaSession &session);

// Frees the records of ended sessions but for those whose packets are still out. Nobody looks for one meanwhile.
void ReleaseRetiredStreams(MediaSession &session);

// When a connection is replaced by another one, whose server may never send to the old streams again: frees the
// rings that no thread serves and no packet needs. PLAY makes them anew.
void FreeIdleRings(const MediaSession &session);

// Frees every stream, a reply under way and the bytes read ahead. No thread of the session lives any more.
void ReleaseSession(MediaSession &session);

} // namespace rtsptap
