// Receiver reports that say what was counted, at the intervals of RFC 3550, 6.2, and a goodbye at the end: of
// clients that ask for them. Sent by the thread that handles a stream's RTCP, over TCP by that of the connection.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

namespace rtsptap {

struct MediaSession;
struct RTSPStreamInfo;

// Of a stream whose client asks for true reports.
struct ReportState {
    // ---- Who sends ----
    uint64_t lastMs = 0; // MonotonicMs when the last one was sent, or was let pass
    uint64_t dueMs = 0;  // when the next one is; 0: none is planned
    uint32_t seed = 0;
    uint64_t ssrc = 0;           // whose figures the next two are
    uint64_t expectedBefore = 0; // at the last report (RFC 3550, A.3)
    uint64_t receivedBefore = 0;
    uint64_t packetsBefore = 0; // of all senders

    // ---- Written by who reads, and who sends ----
    std::array<std::atomic<uint64_t>, 16> members = {}; // bits: which SSRCs are heard, by a part of their sum
    std::atomic<uint32_t> averageBytes{0};              // of reports, those sent and received
    std::atomic<bool> hasSent{false};
    std::atomic<bool> hasLeft{false};
};

// How much there is to report on, and for it.
struct ReportLoad {
    double members = 2;
    double bytesPerSecond = 0; // for reports of all; 0: not known
    double averageBytes = 0;
    bool isFirst = false;
};

// RFC 3550, 6.3.1, in ms; `random` from 0 to 1.
uint64_t ReportIntervalMs(const ReportLoad &load, double random);

// ---- Whoever reads a stream's RTCP ----

void NoteMember(RTSPStreamInfo &stream, uint32_t ssrc);
void NoteReceivedReport(RTSPStreamInfo &stream, std::size_t bytes);

// ---- Writing ----

inline constexpr std::size_t kLongestReport = 120;

// Appends to a compound packet; what does not fit is left out.
struct ReportText {
    std::array<uint8_t, kLongestReport> bytes = {};
    std::size_t size = 0;
};

// An empty receiver report, and one of the stream's sender if packets came since the last.
void AddEmptyReport(const RTSPStreamInfo &stream, ReportText &text);
void AddReport(RTSPStreamInfo &stream, ReportText &text);
void AddName(const RTSPStreamInfo &stream, ReportText &text);
// Over the transport of the session.
void SendText(RTSPStreamInfo &stream, const ReportText &text);

// ---- Who sends ----

bool ReportsTruly(const RTSPStreamInfo &stream);
// Until the next report of the stream is due, 0: now.
int ReportWaitMs(RTSPStreamInfo &stream);
void SendDueReport(RTSPStreamInfo &stream);

// ---- Application thread: before its sockets are closed ----
void SayGoodbye(MediaSession &session);

// ---- Asking again (RFC 4585, 6.2.1) ----

// In which numbers are asked for that have not come. Whoever receives.
struct MissingPackets {
    uint64_t lookedUpTo = 0; // extended number
    uint64_t lastMs = 0;     // MonotonicMs of the last look at the tokens
    uint32_t tokens = 0;     // thousandths of a request
    std::atomic<bool> mayAsk{false};
    std::atomic<bool> inShort{false}; // without a report before (RFC 5506)
};

// Whether the description lets us. Application thread, before packets come.
void PrepareAsking(RTSPStreamInfo &stream);
void AskForMissing(RTSPStreamInfo &stream);

} // namespace rtsptap
