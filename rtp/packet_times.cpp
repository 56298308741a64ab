// When packets were sent and came: sender reports and the reply to PLAY tie RTP timestamps to clocks. Whoever
// handles RTCP and PLAY notes; any thread that holds a packet asks.
#include "rtp/packet_times.h"

#include "platform/printers.h"
#include "platform/system.h"
#include "rtp/media_session.h"
#include "rtp/packet_memory.h"
#include "rtp/statistics.h"
#include "rtp/stream.h"
#include "rtsptap_extended.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace rtsptap {
namespace {

constexpr int64_t kNsPerSecond = 1000000000;

double MonotonicSeconds() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// ---- drift ----

constexpr double kLeastSpan = 5;       // seconds, for a line
constexpr double kSetClockSeconds = 1; // the sender's clock was set: what was before tells nothing

// The slope of the line through the pairs, in millionths.
double SlopePpm(std::span<const ClockPair> pairs) {
    ClockPair mean;
    for (const ClockPair &pair : pairs) {
        mean.local += pair.local / static_cast<double>(pairs.size());
        mean.ahead += pair.ahead / static_cast<double>(pairs.size());
    }
    double squares = 0;
    double products = 0;
    for (const ClockPair &pair : pairs) {
        squares += (pair.local - mean.local) * (pair.local - mean.local);
        products += (pair.local - mean.local) * (pair.ahead - mean.ahead);
    }
    return squares > 0 ? products / squares * 1e6 : 0;
}

} // namespace

void CountDrift(StreamStatistics &statistics, ReportFigures &report, double local) {
    auto &clocks = statistics.clocks;
    const ReportFigures &last = statistics.report;
    const double step = static_cast<double>(static_cast<int64_t>(report.ntp - last.ntp)) * 0x1p-32;
    const auto at = [&](uint64_t number) -> ClockPair & { return clocks[number % clocks.size()]; };
    double ahead = 0;
    if (statistics.clockCount > 0) {
        const ClockPair &before = at(statistics.clockCount - 1);
        ahead = before.ahead + step - (local - before.local);
        const bool isSet = std::fabs(ahead - before.ahead) > kSetClockSeconds || report.ssrc != last.ssrc;
        if (isSet) statistics.clockCount = 0;
        if (isSet) ahead = 0;
    }
    at(statistics.clockCount++) = {local, ahead};
    const uint64_t kept = std::min<uint64_t>(statistics.clockCount, clocks.size());
    report.driftReports = kept;
    const double span = local - at(statistics.clockCount - kept).local;
    report.driftPpm = kept >= 3 && span >= kLeastSpan ? SlopePpm(std::span(clocks).first(kept)) : 0;
}

// Not of another one in a group. The sender is the one that is counted: one that starts again is known there in
// every dialect.
static bool IsOfSender(const RTSPStreamInfo &stream, uint32_t ssrc) {
    const uint64_t counted = stream.statistics->published.Get().ssrc;
    if (counted != kNobody) return counted == ssrc;
    const uint32_t sender = stream.remoteSsrc.load(std::memory_order_relaxed);
    return sender == 0 || sender == ssrc;
}

void NoteSenderReport(RTSPStreamInfo &stream, ReportFigures report) {
    if (stream.statistics == nullptr || !IsOfSender(stream, report.ssrc)) return;
    StreamStatistics &statistics = *stream.statistics;
    report.count = statistics.report.count + 1;
    report.arrivedNs = WallClockNs();
    report.arrivedMs = MonotonicMs();
    CountDrift(statistics, report, MonotonicSeconds());
    statistics.report = report;
    statistics.publishedReport.Put(report);
}

void NotePlay(RTSPStreamInfo &stream, PlayPoint play, bool goesOnElsewhere) {
    if (stream.statistics == nullptr) return;
    StreamStatistics &statistics = *stream.statistics;
    PrepareAsking(stream);
    const PlayPoint &last = statistics.play;
    play.count = last.count + 1;
    play.reportsBefore = goesOnElsewhere ? statistics.publishedReport.Get().count : last.reportsBefore;
    statistics.play = play;
    statistics.publishedPlay.Put(play);
    statistics.plays.store(play.count, std::memory_order_release);
}

// Seconds whose uppermost bit is 0 are after 2036 (RFC 4330, 3).
int64_t NtpInNs(uint64_t ntp) {
    constexpr int64_t kSecondsTo1970 = 2208988800;
    constexpr int64_t kEra = int64_t{1} << 32;
    const auto seconds = static_cast<int64_t>(ntp >> 32);
    const int64_t since1900 = seconds < kEra / 2 ? seconds + kEra : seconds;
    const auto fraction = static_cast<int64_t>((ntp & UINT32_MAX) * kNsPerSecond >> 32);
    return (since1900 - kSecondsTo1970) * kNsPerSecond + fraction;
}

namespace {

constexpr int64_t kMostSeconds = 1000000000; // from the begin: where timestamps lead farther they are no times

int64_t UnitsInNs(int64_t units, int64_t rate) {
    return units / rate * kNsPerSecond + units % rate * kNsPerSecond / rate;
}

void TellByReport(const ReportFigures &report, const RTPHeader &header, int64_t rate, RTSPTapPacketTimes &times) {
    const auto units = static_cast<int32_t>(header.timestamp - report.rtpTimestamp);
    times.source = RTSPTAP_TIME_SENDER_REPORT;
    times.senderNs = NtpInNs(report.ntp) + UnitsInNs(units, rate);
}

void TellByPlay(const ArrivalFigures &figures, const PlayPoint &play, const RTPHeader &header, int64_t rate,
                RTSPTapPacketTimes &times) {
    const int64_t timestamp =
        figures.timestamp + static_cast<int32_t>(header.timestamp - static_cast<uint32_t>(figures.timestamp));
    const int64_t units = timestamp - figures.playTimestamp;
    if (std::abs(units / rate) > kMostSeconds) return;
    const int64_t sinceNs = UnitsInNs(units, rate);
    times.source = RTSPTAP_TIME_RTP_INFO;
    times.senderNs = play.wallNs + sinceNs;
    if (play.playTime < 0) return;
    const double playTime = play.playTime + static_cast<double>(sinceNs) * 1e-9 * play.scale;
    if (playTime >= 0) times.playTime = playTime; // else it is of before the start
}

RTSPTapPacketTimes Tell(const RTSPStreamInfo &stream, const RTPStreamData &packet) {
    const StreamStatistics &kept = *stream.statistics;
    const RTPHeader &header = *packet.rtpHeader;
    const int32_t rate = ClockRateOf(stream);
    const ArrivalFigures figures = kept.published.Get();
    const PlayPoint play = kept.publishedPlay.Get();
    const ReportFigures report = kept.publishedReport.Get();
    RTSPTapPacketTimes times = {};
    times.arrivalNs = reinterpret_cast<const PacketBlock &>(packet).arrivedNs;
    times.playTime = -1;
    times.driftPpm = report.driftPpm;
    times.driftReports = static_cast<uint32_t>(report.driftReports);
    if (rate <= 0) return times;
    if (figures.play != 0 && figures.play == play.count && figures.ssrc == header.ssrc)
        TellByPlay(figures, play, header, rate, times);
    // A sender that knows no time says 0 (RFC 3550, 6.4.1).
    if (report.count > play.reportsBefore && report.ssrc == header.ssrc && report.ntp != 0)
        TellByReport(report, header, rate, times);
    return times;
}

} // namespace
} // namespace rtsptap

using namespace rtsptap;

int32_t RTSPTapGetPacketTimes(intptr_t clientHandle, int32_t stream, const RTPStreamData *packet,
                              RTSPTapPacketTimes *times) {
    const CallTrace trace(__func__);
    const MediaSession *const session = LiveSession(clientHandle);
    if (session == nullptr || packet == nullptr || times == nullptr || times->recordSize < sizeof times->recordSize)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    const RTSPStreamInfo *const found = FindStreamEvenEnded(*session, stream);
    if (found == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :No such stream\n");
    if (found->statistics == nullptr) return RTSP_FAILURE;
    RTSPTapPacketTimes full = Tell(*found, *packet);
    full.recordSize = times->recordSize;
    memcpy(times, &full, std::min<std::size_t>(full.recordSize, sizeof full));
    return RTSP_SUCCESS;
}
