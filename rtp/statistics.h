// What comes of a stream, counted with every packet for clients that ask for it: losses, duplicates, order and
// jitter as in RFC 3550, A.1, A.3 and A.8, and when packets came. Whoever receives counts; anybody reads what was
// published, without a lock. A stream of another client has none of this.
#pragma once

#include "platform/system.h"
#include "rtp/arrivals.h"
#include "rtp/rtcp/true_reports.h"
#include "rtsptap.h"

#include <array>
#include <atomic>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace rtsptap {

struct MediaSession;
struct RTSPStreamInfo;

// A record that one thread at a time writes and any other reads whole: one that is overtaken looks again. The
// words are atomics so that this is no data race.
template <typename Record> class Published {
    static_assert(std::is_trivially_copyable_v<Record> && sizeof(Record) % sizeof(uint64_t) == 0);
    static constexpr std::size_t kWords = sizeof(Record) / sizeof(uint64_t);

public:
    Published() { Put({}); }
    void Put(const Record &record) {
        uint64_t words[kWords];
        std::memcpy(words, &record, sizeof record);
        const uint32_t version = version_.load(std::memory_order_relaxed);
        version_.store(version + 1, std::memory_order_relaxed);
        for (std::size_t i = 0; i < kWords; ++i) words_[i].store(words[i], std::memory_order_release);
        version_.store(version + 2, std::memory_order_release);
    }
    Record Get() const {
        constexpr int kLooks = 100; // then the writer has lost the processor
        for (int looks = 1;; ++looks) {
            const uint32_t before = version_.load(std::memory_order_acquire);
            uint64_t words[kWords];
            for (std::size_t i = 0; i < kWords; ++i) words[i] = words_[i].load(std::memory_order_acquire);
            if (before % 2 == 0 && version_.load(std::memory_order_relaxed) == before) {
                Record record;
                std::memcpy(&record, words, sizeof record);
                return record;
            }
            if (looks % kLooks == 0) MSecDelay(1);
        }
    }

private:
    std::atomic<uint32_t> version_{0}; // odd while it is written
    std::atomic<uint64_t> words_[kWords] = {};
};

inline constexpr uint64_t kFirstCycle = 1 << 16; // extended numbers begin here: one before the first is no wrap

// Numbers are extended by the times that they went round (RFC 3550, A.1).
struct ArrivalFigures {
    uint64_t packets = 0;        // of all senders there were: duplicates, too
    uint64_t bytes = 0;          // of whole packets
    uint64_t duplicates = 0;     // numbers that had come
    uint64_t reordered = 0;      // numbers behind the highest one that had not
    uint64_t strays = 0;         // of nobody who sends: one of another SSRC, or far from the last
    uint64_t restarts = 0;       // senders after the first one
    uint64_t expectedBefore = 0; // of those that ended
    // ---- of the sender there is ----
    uint64_t ssrc = kNobody;
    uint64_t first = 0;    // lowest number
    uint64_t highest = 0;  // number
    uint64_t received = 0; // duplicates, too
    int64_t timestamp = 0; // of its last packet; goes on where those of 32 bits go round
    int64_t transit = 0;   // timestamp units
    int64_t jitter = 0;    // sixteenths of timestamp units
    // ---- of all ----
    int64_t jitterMost = 0;   // sixteenths
    uint64_t jitterSum = 0;   // the same, one summand each for
    uint64_t jitterCount = 0; // so many packets
    int64_t arrivedNs = 0;    // of the last packet, since 1970; 0: none has come
    uint64_t arrivedMs = 0;   // the same by MonotonicMs
    int64_t longestGapNs = 0; // between two packets
    uint64_t askedAgain = 0;  // numbers that the sender was asked for
    uint64_t kernelDrops = 0; // by the socket's buffer, up to the last packet
    // ---- of the sender, again ----
    uint64_t play = 0;         // count of the PlayPoint that the next is of; 0: none is the sender's
    int64_t playTimestamp = 0; // its RTP time, as `timestamp` goes on
};

// The last sender report of the stream's sender (RFC 3550, 6.4.1).
struct ReportFigures {
    uint64_t count = 0; // reports so far
    uint64_t ntp = 0;   // 32.32 bits
    uint32_t ssrc = 0;
    uint32_t rtpTimestamp = 0;
    uint32_t packets = 0;
    uint32_t octets = 0;
    int64_t arrivedNs = 0;     // since 1970
    uint64_t arrivedMs = 0;    // MonotonicMs
    double driftPpm = 0;       // how much faster the sender's clock runs than this machine's
    uint64_t driftReports = 0; // by so many reports
};

// What the reply to the last PLAY says of a stream (RFC 2326, 12.33).
struct PlayPoint {
    uint64_t count = 0;         // of replies
    uint64_t reportsBefore = 0; // sender reports that say nothing of what comes since
    int64_t rtpTime = -1;       // -1: it does not say
    int64_t wallNs = 0;         // when it came, the same for all streams it is about
    double playTime = -1;       // seconds of normal play time at rtpTime; -1: it does not say
    double scale = 1;           // seconds of that in a second
};

// When reports said they were sent, and when they came: for the drift between the clocks. Seconds.
struct ClockPair {
    double local = 0;
    double ahead = 0; // how far the sender's clock is before this one
};

struct StreamStatistics {
    // ---- Whoever receives, in its turn ----
    ArrivalFigures figures;
    std::bitset<1024> seen;    // which of the last numbers have come, by their lower bits
    bool onProbation = false;  // somebody who is believed with the next packet in sequence
    uint32_t newSsrc = 0;      // who
    uint32_t newBytes = 0;     // of its packet
    uint16_t newNext = 0;      // which
    int64_t nextArrivedNs = 0; // of the packet that is accepted next; 0: it is not known
    uint32_t socketDrops = 0;  // as the socket counts
    MissingPackets missing;
    Published<ArrivalFigures> published;

    uint64_t playSeen = 0; // count of the PlayPoint seen last

    // ---- Application thread; read by whoever receives ----
    PlayPoint play;
    Published<PlayPoint> publishedPlay;
    std::atomic<uint64_t> plays{0}; // its count

    // ---- Who handles the stream's RTCP ----
    ReportFigures report;
    std::array<ClockPair, 64> clocks; // of the last reports
    uint64_t clockCount = 0;          // how many were put there
    Published<ReportFigures> publishedReport;

    ReportState reports; // has groups of its own
};

// What left a queue unread, or found no place in it: counted for every client.
struct StreamDrops {
    std::atomic<uint64_t> late{0};     // behind others that were handed out after their wait
    std::atomic<uint64_t> latency{0};  // by the latency settings
    std::atomic<uint64_t> limit{0};    // the queue was at its limit
    std::atomic<uint64_t> ring{0};     // frames without room in the ring
    std::atomic<uint64_t> refused{0};  // no RTP, or of another payload type
    std::atomic<uint64_t> forged{0};   // protected, and not authentic; RTCP, too
    std::atomic<uint64_t> replayed{0}; // protected, and had come before
};

inline void CountOne(std::atomic<uint64_t> &counter) { counter.fetch_add(1, std::memory_order_relaxed); }

// Whether a client has asked for anything that needs a look at every packet. Application thread.
bool IsWatched(const MediaSession &session);

// Before datagrams are received on a socket of a client that asks: they come with their time.
void AskForArrivals(const MediaSession &session, int socket);

// A datagram's arrival, before it is accepted. Whoever receives.
void NoteDatagram(StreamStatistics &statistics, const DatagramArrival &arrival);

// A packet that is accepted. Whoever receives.
void CountArrival(RTSPStreamInfo &stream, RTPStreamData &packet);

// RTP timestamp units per second; 0: not known. By the description or, without one, the codec.
int32_t ClockRateOf(const RTSPStreamInfo &stream);

// A new sender report of the stream's sender. Whoever handles its RTCP.
void NoteSenderReport(RTSPStreamInfo &stream, ReportFigures report);

// The reply to PLAY says so of the stream; count and reportsBefore are filled in. Where the stream was paused, or
// goes on elsewhere, reports of before say nothing any more. Application thread.
void NotePlay(RTSPStreamInfo &stream, PlayPoint play, bool goesOnElsewhere);

// The stream with that number, also of the session that was torn down last; null when there is none.
RTSPStreamInfo *FindStreamEvenEnded(const MediaSession &session, int32_t number);

// An NTP time (32.32 bits) in ns since 1970, up to 2104.
int64_t NtpInNs(uint64_t ntp);

// Wall clock, ns since 1970.
int64_t WallClockNs();

} // namespace rtsptap
