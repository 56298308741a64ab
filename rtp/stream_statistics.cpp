// What a stream is doing, as the application asks for it. Any thread; what it reads was published by whoever
// counts.
#include "platform/printers.h"
#include "platform/system.h"
#include "rtp/delivery.h"
#include "rtp/media_session.h"
#include "rtp/statistics.h"
#include "rtp/stream.h"
#include "rtsptap_extended.h"

#include <algorithm>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>

namespace rtsptap {
namespace {

constexpr int64_t kSixteenths = 16;

double InUs(double sixteenths, int32_t rate) { return rate > 0 ? sixteenths / kSixteenths * 1e6 / rate : 0; }

int64_t SinceMs(uint64_t thenMs) {
    const uint64_t now = MonotonicMs();
    return now > thenMs ? static_cast<int64_t>(now - thenMs) : 0;
}

void TellSenderReport(const ReportFigures &report, RTSPTapStreamStatistics &told) {
    told.sinceReportMs = report.count > 0 ? SinceMs(report.arrivedMs) : -1;
    told.senderReports = report.count;
    told.reportNtp = report.ntp;
    told.reportRtpTimestamp = report.rtpTimestamp;
    told.reportPackets = report.packets;
    told.reportOctets = report.octets;
    told.reportArrivedNs = report.arrivedNs;
}

void TellJitter(const ArrivalFigures &figures, int32_t rate, RTSPTapStreamStatistics &told) {
    const double mean = figures.jitterCount > 0
                            ? static_cast<double>(figures.jitterSum) / static_cast<double>(figures.jitterCount)
                            : 0;
    told.clockRate = rate;
    told.jitter = static_cast<uint32_t>(figures.jitter / kSixteenths);
    told.jitterUs = InUs(static_cast<double>(figures.jitter), rate);
    told.meanJitterUs = InUs(mean, rate);
    told.mostJitterUs = InUs(static_cast<double>(figures.jitterMost), rate);
}

void TellArrivals(const ArrivalFigures &figures, RTSPTapStreamStatistics &told) {
    constexpr int64_t kNsPerMs = 1000000;
    const bool any = figures.ssrc != kNobody;
    told.ssrc = any ? static_cast<uint32_t>(figures.ssrc) : 0;
    told.firstNumber = static_cast<uint16_t>(figures.first);
    told.highestNumber = any ? static_cast<uint32_t>(figures.highest - kFirstCycle) : 0;
    told.packets = figures.packets;
    told.bytes = figures.bytes;
    told.expected = figures.expectedBefore + (any ? figures.highest - figures.first + 1 : 0);
    told.lost = static_cast<int64_t>(told.expected - figures.packets);
    told.missing = told.expected - std::min(told.expected, figures.packets - figures.duplicates);
    told.fractionLost =
        told.expected > 0 ? static_cast<double>(told.missing) / static_cast<double>(told.expected) : 0;
    told.duplicates = figures.duplicates;
    told.reordered = figures.reordered;
    told.askedAgain = figures.askedAgain;
    told.strays = figures.strays;
    told.restarts = figures.restarts;
    told.sinceLastPacketMs = any ? SinceMs(figures.arrivedMs) : -1;
    told.lastPacketNs = figures.arrivedNs;
    told.longestGapMs = figures.longestGapNs / kNsPerMs;
    told.droppedByKernel = figures.kernelDrops;
}

void TellDrops(const StreamDrops &drops, RTSPTapStreamStatistics &told) {
    told.late = drops.late.load(std::memory_order_relaxed);
    told.droppedByLatency = drops.latency.load(std::memory_order_relaxed);
    told.droppedByLimit = drops.limit.load(std::memory_order_relaxed);
    told.droppedByRing = drops.ring.load(std::memory_order_relaxed);
    told.refused = drops.refused.load(std::memory_order_relaxed);
    told.forged = drops.forged.load(std::memory_order_relaxed);
    told.replayed = drops.replayed.load(std::memory_order_relaxed);
}

void TellQueue(RTSPStreamInfo &stream, int32_t rate, RTSPTapStreamStatistics &told) {
    constexpr int64_t kMsPerSecond = 1000;
    if (stream.packetListHead.load(std::memory_order_relaxed) == nullptr) return;
    const ScopedShortLock lock(stream.packetListLock);
    const RTPStreamData *const head = stream.packetListHead.load(std::memory_order_relaxed);
    if (head == nullptr) return;
    const int64_t span = TimestampSpan(*stream.packetListTail, *head);
    told.queuedPackets = stream.packetCount.load(std::memory_order_relaxed);
    told.queuedMs = rate > 0 ? static_cast<int32_t>(std::max<int64_t>(span, 0) * kMsPerSecond / rate) : 0;
}

// As the system measures it on the RTSP connection; -1 without one.
int64_t RoundTripUs(const MediaSession &session) {
    tcp_info info = {};
    socklen_t length = sizeof info;
    const int socket = session.connection.socket;
    if (socket < 0 || getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &length) != 0) return -1;
    return info.tcpi_rtt > 0 ? int64_t{info.tcpi_rtt} : -1;
}

uint64_t RulesUsed(const Dialect &dialect) {
    uint64_t used = 0;
    for (std::size_t i = 0; i < kRuleCount; ++i) used += dialect.Uses(static_cast<Rule>(i)) > 0 ? 1 : 0;
    return used;
}

RTSPTapStreamStatistics Tell(RTSPStreamInfo &stream) {
    const StreamStatistics *const counted = stream.statistics;
    const ArrivalFigures figures = counted != nullptr ? counted->published.Get() : ArrivalFigures{};
    const int32_t rate = ClockRateOf(stream);
    RTSPTapStreamStatistics told = {};
    told.isCounted = counted != nullptr ? 1 : 0;
    told.endedWhy = EndOf(stream);
    told.roundTripUs = RoundTripUs(*stream.session);
    told.rulesUsed = RulesUsed(stream.session->dialect);
    TellArrivals(figures, told);
    TellJitter(figures, rate, told);
    TellSenderReport(counted != nullptr ? counted->publishedReport.Get() : ReportFigures{}, told);
    TellDrops(stream.drops, told);
    TellQueue(stream, rate, told);
    return told;
}

} // namespace

RTSPStreamInfo *FindStreamEvenEnded(const MediaSession &session, int32_t number) {
    RTSPStreamInfo *stream = FindStreamByNumber(session, number);
    if (stream != nullptr || number < 1 || number > session.tornDownStreams) return stream;
    for (stream = session.retiredStreams; stream != nullptr && stream->number != number;) stream = stream->next;
    return stream;
}

} // namespace rtsptap

using namespace rtsptap;

int32_t RTSPTapGetStreamStatistics(intptr_t clientHandle, int32_t stream, RTSPTapStreamStatistics *statistics) {
    const CallTrace trace(__func__);
    const MediaSession *const session = LiveSession(clientHandle);
    if (session == nullptr || statistics == nullptr || statistics->recordSize < sizeof statistics->recordSize)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    RTSPStreamInfo *const found = FindStreamEvenEnded(*session, stream);
    if (found == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :No such stream\n");
    RTSPTapStreamStatistics full = Tell(*found);
    full.recordSize = statistics->recordSize;
    memcpy(statistics, &full, std::min<std::size_t>(full.recordSize, sizeof full));
    return RTSP_SUCCESS;
}
