// One media stream of a session: a media section of the description, or a port of the standalone receiver.
// Fields are grouped by the threads that touch them. Released by ReleaseStream.
#pragma once

#include "platform/address.h"
#include "platform/system.h"
#include "platform/text.h"
#include "rtp/arrivals.h"
#include "rtp/held_packets.h"
#include "rtp/packet_memory.h"
#include "rtp/receive_turn.h"
#include "rtp/statistics.h"
#include "rtp/stream_config.h"
#include "rtsptap_extended.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace rtsptap {

struct MediaSession;
struct StreamProtection;
struct StreamThread;

inline constexpr uint32_t kStreamPlaying = CLIENT_PLAYING_STATE; // streamState shares the client's numbers
inline constexpr uint32_t kStreamPaused = CLIENT_PAUSE_STATE;

// One line of a session description, as its stream or its client keeps it. Application thread only.
struct SDPField {
    char name[2] = {};        // type letter and terminator
    char *value = nullptr;    // owned, free(): the line from its third character on
    SDPField *next = nullptr; // next line of the same list
};

// The last sender report (RFC 3550, 6.4.1), word by word.
struct SenderReport {
    uint32_t header = 0;
    uint32_t senderSsrc = 0;
    uint32_t ntpMsw = 0;
    uint32_t ntpLsw = 0;
    uint32_t packetCount = 0;
    uint32_t octetCount = 0;
};

// A goodbye that may be none: see rtp/rtcp/goodbye.h.
struct DoubtedGoodbye {
    uint64_t lookMs = 0;  // MonotonicMs when it is looked at again; 0: there is none
    bool isLast = false;  // that look decides
    uint32_t handled = 0; // packets of the stream by the look before
};

// What the thread that handles a stream's RTCP keeps to itself.
struct RtcpState {
    uint64_t silentSinceMs = 0; // since when it waits for a datagram, monotonic; 0: it does not; handed over
    SenderReport senderReport;
    uint16_t seqCycles = 0;          // sequence number wraps
    uint32_t seqWrapPending = 0;     // 1 while a wrap is expected
    uint32_t prevCumulativeLost = 0; // cumulativeLost at the previous report
    uint32_t senderChanges = 0;      // of the stream's, those that reports have started anew for
    DoubtedGoodbye goodbye;
};

// The payload types that packets of a stream may have. The application thread adds to them before packets come.
class PayloadTypeSet {
public:
    bool Has(uint8_t payloadType) const {
        return (Half(payloadType).load(std::memory_order_relaxed) & Bit(payloadType)) != 0;
    }
    void Add(uint8_t payloadType) {
        halves_[payloadType / 64].fetch_or(Bit(payloadType), std::memory_order_relaxed);
    }

private:
    static uint64_t Bit(uint8_t payloadType) { return uint64_t{1} << payloadType % 64; }
    const std::atomic<uint64_t> &Half(uint8_t payloadType) const { return halves_[payloadType / 64]; }

    // 0, 8, 10, 11, 14, 26 and 33; 96 and up
    std::atomic<uint64_t> halves_[2] = {0x2'0400'4D01, 0xFFFF'FFFF'0000'0000};
};

// What a description tells that RTSPStreamDescription has no place for. Pointers owned, free().
struct FurtherDescription {
    int32_t media = RTSPTAP_MEDIA_OTHER; // RTSPTapMedia
    int32_t firstPayloadType = -1;       // of the m= line; -1: none
    int32_t sameControlAs = 0;           // number of the first stream with its control URL; 0: it is that itself
    uint8_t *vps = nullptr;              // of H.265, whose sps and pps are where H.264's are
    int32_t vpsSize = 0;
    uint8_t *config = nullptr; // of MPEG-4, but for AAC's, which has its own
    int32_t configSize = 0;
    HeapText suite; // of the first a=crypto line of a protected section, empty without one; null: not protected
};

// What the datagrams that came together were like, to make places for the next ones.
struct BatchHabits {
    std::size_t places = 1;  // how many may come
    std::size_t longest = 0; // bytes of the longest of the last batch
    bool refused = false;    // by the system: they are received one by one
};

// How far a stream's packets have been handed out, of a client that waits for missing ones.
struct DeliveryOrder {
    bool begun = false;
    uint32_t ssrc = 0;
    uint16_t next = 0;                   // number
    std::atomic<uint64_t> waitEndsMs{0}; // MonotonicMs when what is missing is given up; 0: nothing is
};

struct RTSPStreamInfo {
    // ---- Application thread only ----
    RTSPStreamDescription description = {}; // handed out; fmtp, sps, pps, aacConfig owned, free()
    FurtherDescription further;
    HeapText controlUrl;              // request URI of SETUP, PLAY and PAUSE; null: none of its own
    SDPField *sdpFieldList = nullptr; // owned: this media section's lines
    uint16_t clientPort = 0;          // local RTP port, host order
    bool isWanted = false;            // it is to be set up
    bool isSetUp = false;             // by a SETUP that was answered with 200
    bool isMulticast = false;         // what comes over UDP is sent to a group
    StreamThread *thread = nullptr;   // owned; the serving receive thread
    uint8_t locksMade = 0;            // of packetListLock, signalLock and dataCondition, in this order

    // ---- Written by the application thread while no thread of the stream lives ----
    int32_t rtpSocket = -1;
    int32_t rtcpSocket = -1;
    Address reportsTo;                      // where reports over UDP go; none: to the server
    StreamProtection *protection = nullptr; // owned; of its packets, set by SETUP; null: they have none
    MediaSession *session = nullptr;        // owner; constant

    // ---- Written by the application thread, read by the receive threads ----
    std::atomic<uint32_t> streamState{0};        // kStreamPlaying, kStreamPaused or 0
    std::atomic<uint32_t> interleavedChannel{0}; // RTP channel; RTCP uses the next one; set by SetChannel
    std::atomic<bool> channelIsUnsaid{false};    // the server has not named it, and no frame has come for it
    std::atomic<uint16_t> serverPort{0};         // server's RTP port, host order
    std::atomic<bool> takesFrames{false};        // interleaved: its ring and reports are the connection's affair
    std::atomic<int32_t> codecType{0};           // RTPCodecType, 0 when unknown
    std::atomic<uint8_t> isVideo{0};             // chooses the ring size
    PayloadTypeSet payloadTypes;                 // packets of others are refused
    std::atomic<RTSPStreamInfo *> next{nullptr};
    ConfigSearch configSearch; // in packets, of what the description lacks; has groups of its own

    // ---- Written by whoever receives, read by others ----
    std::atomic<uint64_t> plainSsrc{kNobody}; // whose packets are not looked at more closely; see NoteArrival
    std::atomic<uint32_t> remoteSsrc{0};      // 0 until the first packet
    std::atomic<uint32_t> senderChanges{0};   // how often a sender has started again
    std::atomic<uint32_t> localSsrc{0};       // ours, in receiver reports; set by the thread that reports
    std::atomic<uint16_t> lastSeqNum{0};      // of the last parsed packet, late ones included
    std::atomic<int32_t> baseSeqNum{-1};      // first sequence number; -1 before the first packet
    std::atomic<uint32_t> cumulativeLost{0};  // the process-wide loss count at this stream's last gap
    std::atomic<int32_t> endedWhy{0}; // RTSPTapResult: why nothing more comes; 0 while it may; see EndReception

    // ---- Receiving: one at a time, the receive thread or a reader in its turn ----
    ReceiveTurn turn; // over UDP says who, over TCP the connection's; the ring's writing end and the pool's taking
                      // end go with it
    BatchHabits batches;
    ArrivalWatch watch;

    // ---- Figures; have groups of their own ----
    StreamDrops drops;
    StreamStatistics *statistics = nullptr; // owned; constant; null: the client has not asked for any

    // ---- RTCP ----
    RtcpState rtcp;
    std::atomic<uint32_t> srRtpTimestamp{0}; // of the last sender report; read for RTPClientGetTSOffset, too

    // ---- Receive ring: see ReceiveRing for who moves what ----
    ReceiveRing ring;
    std::atomic<bool> receiving{false}; // interleaved: the ring is open and frames are taken
    bool signalDue = false;             // interleaved, in the turn: listed in the reader's signalDue
    RTSPStreamInfo *nextSignalDue = nullptr;
    PacketPool pool; // what is out of it lies in the ring

    // ---- Packet queue: links and counts change under packetListLock ----
    // Guards the queue; a leaf, nothing is printed under it. A stream whose locks could not be made has these.
    ShortLock packetListLock;
    std::atomic<RTPStreamData *> packetListHead{nullptr}; // oldest; peeked without the lock before waiting
    RTPStreamData *packetListTail = nullptr;              // newest; null when the head is null
    std::atomic<int32_t> packetCount{0};                  // as counted; see InsertPacket; read without the lock
    RTPStreamData *peekedPacket = nullptr;                // last packet shown by Peek and still queued
    RTPStreamData *deferredPacket = nullptr; // a shown packet that left the queue; freed at the next look
    DeliveryOrder order;
    uint32_t buffering = 0; // 1 while delivery is held back for underflow

    // ---- New-data signal ----
    pthread_mutex_t signalLock = PTHREAD_MUTEX_INITIALIZER;  // of dataCondition; never held with packetListLock
    pthread_cond_t dataCondition = PTHREAD_COND_INITIALIZER; // a datagram or frame was handled
    std::atomic<uint32_t> receptionsEnded{0}; // a reader that began to wait before the last one does not
    std::atomic<int32_t> waitingReaders{0};   // readers inside the wait; nobody is signalled while 0
    std::atomic<uint32_t> handled{0};         // datagrams and frames so far; changes with the queue they went into
    uint32_t handledBeforeWait = 0;           // as the waiting reader found it; guarded by signalLock

    // ---- Readers that name the stream by its number ----
    int32_t number = 0;                      // in description order; constant
    HeldPackets held;                        // guarded by packetListLock
    std::atomic<uint32_t> interruptsTold{0}; // of the session's, those its reader knows of

    // ---- The program's own loop: see rtp/loop/watch.h ----
    bool isReady = false;   // in the list of its watch, if there is one
    bool endIsTold = false; // by a group
    RTSPStreamInfo *nextReady = nullptr;
    RTSPStreamInfo *previousReady = nullptr;
};

enum class StreamLock { kNone, kPacketList, kSignal, kCondition };

// Makes packetListLock, signalLock and dataCondition, in that order. Returns the one that could not be
// made, or kNone. The stream can be used and released all the same.
StreamLock CreateStreamLocks(RTSPStreamInfo &stream);
void DestroyStreamLocks(RTSPStreamInfo &stream);

// Frees every line of the list and clears the head.
void ReleaseSdpFields(SDPField *&head);

// ---- The end ----

// The session is over and the stream's threads have been joined: its lines and its queue go, its ring with the last
// packet in it. The description stays.
void EndStream(RTSPStreamInfo &stream);

// Frees the record and all it owns: lines, queued packets, pool, ring, codec configuration, locks.
// Its threads have been joined and its sockets closed.
void ReleaseStream(RTSPStreamInfo *stream);

} // namespace rtsptap
