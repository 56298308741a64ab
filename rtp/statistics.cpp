#include "rtp/statistics.h"

#include "rtp/codec_table.h"
#include "rtp/media_session.h"
#include "rtp/stream.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <utility>

namespace rtsptap {
namespace {

// ---- who sends, and which of its numbers have come (RFC 3550, A.1) ----

void Begin(StreamStatistics &statistics, uint32_t ssrc, uint16_t number, uint32_t timestamp) {
    ArrivalFigures &figures = statistics.figures;
    statistics.onProbation = false;
    statistics.seen.reset();
    figures.ssrc = ssrc;
    figures.first = figures.highest = kFirstCycle + number;
    figures.received = 0;
    figures.timestamp = timestamp;
    figures.jitter = 0;
    figures.transit = 0;
    figures.play = 0;
}

uint64_t ExpectedOf(const ArrivalFigures &figures) {
    return figures.ssrc == kNobody ? 0 : figures.highest - figures.first + 1;
}

// Two in sequence are believed: the first of them was no stray.
void BeginNext(StreamStatistics &statistics, uint32_t ssrc, uint16_t number, uint32_t timestamp) {
    ArrivalFigures &figures = statistics.figures;
    figures.expectedBefore += ExpectedOf(figures);
    ++figures.restarts;
    --figures.strays;
    Begin(statistics, ssrc, static_cast<uint16_t>(number - 1), timestamp);
    statistics.seen[figures.first % statistics.seen.size()] = true;
    ++figures.packets;
    ++figures.received;
    figures.bytes += statistics.newBytes;
}

bool IsFar(uint16_t ahead) { return ahead >= kFarAhead && static_cast<uint16_t>(-ahead) >= kFarBehind; }

// Whether the packet is the sender's.
bool IsOfSender(StreamStatistics &statistics, const RTPStreamData &packet) {
    const uint32_t ssrc = packet.rtpHeader->ssrc;
    const uint32_t timestamp = packet.rtpHeader->timestamp;
    const uint16_t number = packet.rtpHeader->sequenceNumber;
    const ArrivalFigures &figures = statistics.figures;
    if (figures.ssrc == kNobody) Begin(statistics, ssrc, number, timestamp);
    const auto ahead = static_cast<uint16_t>(number - figures.highest);
    if (figures.ssrc == ssrc && !IsFar(ahead)) {
        statistics.onProbation = false;
        return true;
    }
    if (statistics.onProbation && statistics.newSsrc == ssrc && statistics.newNext == number) {
        BeginNext(statistics, ssrc, number, timestamp);
        return true;
    }
    statistics.onProbation = true;
    statistics.newSsrc = ssrc;
    statistics.newBytes = packet.packetLength;
    statistics.newNext = static_cast<uint16_t>(number + 1);
    ++statistics.figures.strays;
    return false;
}

void CountNumber(StreamStatistics &statistics, uint16_t number) {
    ArrivalFigures &figures = statistics.figures;
    const auto ahead = static_cast<uint16_t>(number - figures.highest);
    const uint64_t window = statistics.seen.size();
    if (ahead != 0 && ahead < kFarAhead) {
        for (uint64_t i = 1; i <= std::min<uint64_t>(ahead, window); ++i)
            statistics.seen[(figures.highest + i) % window] = false;
        figures.highest += ahead;
        statistics.seen[figures.highest % window] = true;
        return;
    }
    const uint64_t extended = figures.highest - static_cast<uint16_t>(-ahead);
    auto wasSeen = statistics.seen[extended % window];
    figures.duplicates += wasSeen ? 1 : 0;
    figures.reordered += !wasSeen && ahead != 0 ? 1 : 0;
    figures.first = std::min(figures.first, extended);
    wasSeen = true;
}

// ---- when (RFC 3550, A.8) ----

constexpr int64_t kNsPerSecond = 1000000000;
constexpr int64_t kSettingSeconds = 10; // a step of more is a clock's that was set, and no delay

int64_t InUnits(int64_t ns, int64_t rate) {
    return ns / kNsPerSecond * rate + ns % kNsPerSecond * rate / kNsPerSecond;
}

void CountJitter(ArrivalFigures &figures, int64_t arrivedNs, int64_t rate) {
    const int64_t transit = InUnits(arrivedNs, rate) - figures.timestamp;
    const int64_t step = std::abs(transit - figures.transit);
    const bool isFirst = figures.received <= 1;
    figures.transit = transit;
    if (isFirst || step > kSettingSeconds * rate) return;
    figures.jitter += step - ((figures.jitter + 8) >> 4);
    figures.jitterMost = std::max(figures.jitterMost, figures.jitter);
    figures.jitterSum += static_cast<uint64_t>(figures.jitter);
    ++figures.jitterCount;
}

void CountTime(ArrivalFigures &figures, int64_t arrivedNs) {
    constexpr int64_t kNsPerMs = kNsPerSecond / 1000;
    const uint64_t now = MonotonicMs();
    const int64_t gapNs = arrivedNs - figures.arrivedNs;
    const int64_t handledNs = static_cast<int64_t>(now - figures.arrivedMs) * kNsPerMs; // between the two of them
    if (figures.arrivedNs != 0 && gapNs - handledNs <= kSettingSeconds * kNsPerSecond)
        figures.longestGapNs = std::max(figures.longestGapNs, gapNs);
    figures.arrivedNs = arrivedNs;
    figures.arrivedMs = now;
}

// The first packet since PLAY: its timestamp is near the one that the reply names.
void CountPlay(StreamStatistics &statistics) {
    const PlayPoint play = statistics.publishedPlay.Get();
    ArrivalFigures &figures = statistics.figures;
    statistics.playSeen = play.count;
    if (play.rtpTime < 0) return;
    figures.play = play.count;
    figures.playTimestamp = figures.timestamp + static_cast<int32_t>(static_cast<uint32_t>(play.rtpTime) -
                                                                     static_cast<uint32_t>(figures.timestamp));
}

} // namespace

// ---- arrivals ----

bool IsWatched(const MediaSession &session) {
    return (session.keepsStatistics | session.keepsTimes | session.trueReports | session.asksAgain) != 0;
}

void AskForArrivals(const MediaSession &session, int socket) {
    if (IsWatched(session)) TellArrivals(socket);
}

void NoteDatagram(StreamStatistics &statistics, const DatagramArrival &arrival) {
    statistics.nextArrivedNs = arrival.ns;
    const uint32_t before = statistics.socketDrops;
    // A socket's count that is lower than before is another socket's.
    statistics.figures.kernelDrops += arrival.drops >= before ? arrival.drops - before : arrival.drops;
    statistics.socketDrops = arrival.drops;
}

void CountArrival(RTSPStreamInfo &stream, RTPStreamData &packet) {
    StreamStatistics &statistics = *stream.statistics;
    ArrivalFigures &figures = statistics.figures;
    const RTPHeader &header = *packet.rtpHeader;
    int64_t arrivedNs = std::exchange(statistics.nextArrivedNs, 0);
    if (arrivedNs == 0) arrivedNs = WallClockNs();
    BlockOf(packet).arrivedNs = arrivedNs;
    if (IsOfSender(statistics, packet)) {
        ++figures.packets;
        ++figures.received;
        figures.bytes += packet.packetLength;
        figures.timestamp += static_cast<int32_t>(header.timestamp - static_cast<uint32_t>(figures.timestamp));
        CountNumber(statistics, header.sequenceNumber);
        if (const int32_t rate = ClockRateOf(stream); rate > 0) CountJitter(figures, arrivedNs, rate);
        CountTime(figures, arrivedNs);
        AskForMissing(stream);
        if (statistics.plays.load(std::memory_order_acquire) != statistics.playSeen) CountPlay(statistics);
    }
    statistics.published.Put(figures);
}

int32_t ClockRateOf(const RTSPStreamInfo &stream) {
    if (stream.description.clockRate > 0) return stream.description.clockRate;
    return UsualClockRate(stream.codecType.load(std::memory_order_relaxed));
}

int64_t WallClockNs() {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<int64_t>(now.tv_sec) * kNsPerSecond + now.tv_nsec;
}

} // namespace rtsptap
