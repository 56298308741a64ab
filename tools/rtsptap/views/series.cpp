#include "views/series.h"

#include <algorithm>
#include <utility>

namespace tool {
namespace {

constexpr double kLeastPart = 0.5; // of a point's width: a shorter last one becomes part of the one before

double Seconds(Clock::duration length) { return std::chrono::duration<double>(length).count(); }

SeriesPoint Merged(const SeriesPoint &first, const SeriesPoint &second) {
    SeriesPoint both = first;
    both.end = second.end;
    both.packets += second.packets;
    both.bytes += second.bytes;
    both.lost += second.lost;
    both.duplicates += second.duplicates;
    if (first.jitterMs && second.jitterMs)
        both.jitterMs = (*first.jitterMs + *second.jitterMs) / 2;
    else if (second.jitterMs)
        both.jitterMs = second.jitterMs;
    both.highestJitterMs = std::max(first.highestJitterMs, second.highestJitterMs);
    both.longestGapMs = std::max(first.longestGapMs, second.longestGapMs);
    both.queued = std::max(first.queued, second.queued);
    both.disturbed = first.disturbed || second.disturbed;
    return both;
}

} // namespace

double BitsPerSecond(const SeriesPoint &point) {
    return static_cast<double>(point.bytes) * 8 / (point.end - point.begin);
}

std::optional<double> LossPercent(const SeriesPoint &point) {
    const uint64_t expected = point.packets - point.duplicates + point.lost;
    if (expected == 0) return std::nullopt;
    return 100 * static_cast<double>(point.lost) / static_cast<double>(expected);
}

std::optional<double> MeanGapMs(const SeriesPoint &point) {
    if (point.packets == 0) return std::nullopt;
    return (point.end - point.begin) * 1000 / static_cast<double>(point.packets);
}

PacketObserver SeriesRecorder::Observer() {
    return [this](const Stream &stream, const RTPStreamData &, Clock::time_point arrival) {
        const std::lock_guard guard(lock_);
        Gaps &gaps = gaps_[stream.number];
        if (gaps.last != Clock::time_point()) gaps.longest = std::max(gaps.longest, arrival - gaps.last);
        gaps.last = arrival;
    };
}

void SeriesRecorder::Show(const Observation &observation) {
    ++looks_;
    if (!observation.IsPlaying()) ++disturbedLooks_;
    NoteStreams(observation);
    if (Seconds(observation.elapsed) - begin_ >= width_) Complete(observation);
}

Outcome SeriesRecorder::Finish(const Observation &observation) {
    last_ = observation;
    NoteStreams(observation);
    const double part = Seconds(observation.elapsed) - begin_;
    if (part <= 0) return {};
    Complete(observation);
    for (auto &[number, gathering] : streams_) {
        std::vector<SeriesPoint> &points = gathering.points;
        if (part >= kLeastPart * width_ || points.size() < 2) continue;
        const SeriesPoint last = points.back();
        points.pop_back();
        points.back() = Merged(points.back(), last);
    }
    return {};
}

const std::vector<SeriesPoint> &SeriesRecorder::PointsOf(int32_t stream) const {
    static const std::vector<SeriesPoint> kNone;
    const auto found = streams_.find(stream);
    return found == streams_.end() ? kNone : found->second.points;
}

void SeriesRecorder::Complete(const Observation &observation) {
    bool full = false;
    for (const StreamObservation &stream : observation.streams) {
        std::vector<SeriesPoint> &points = streams_[stream.stream.number].points;
        points.push_back(TakePoint(stream, observation));
        full = full || points.size() >= kMostPoints;
    }
    begin_ = Seconds(observation.elapsed);
    looks_ = disturbedLooks_ = 0;
    if (full) Merge();
}

void SeriesRecorder::NoteStreams(const Observation &observation) {
    for (const StreamObservation &stream : observation.streams) {
        Gathering &gathering = streams_[stream.stream.number];
        NoteJitter(stream.statistics, gathering);
        gathering.queued = std::max(gathering.queued, stream.queued);
        ++gathering.looks;
    }
}

// What rises between two looks and falls again shows where it is the highest of all.
void SeriesRecorder::NoteJitter(const StreamStatistics &statistics, Gathering &gathering) {
    const double jitter = statistics.JitterMs().value_or(0);
    const double record = statistics.MaxJitterMs().value_or(0);
    const double highest = record > gathering.jitterRecord ? record : jitter;
    gathering.jitterSum += jitter;
    gathering.jitterHighest = std::max(gathering.jitterHighest, highest);
    gathering.jitterRecord = record;
}

SeriesPoint SeriesRecorder::TakePoint(const StreamObservation &stream, const Observation &observation) {
    Gathering &gathering = streams_[stream.stream.number];
    const Counts now = CountsOf(stream.statistics, observation.now);
    const Interval interval = Between(gathering.before, now);
    SeriesPoint point{begin_,
                      Seconds(observation.elapsed),
                      interval.packets,
                      interval.bytes,
                      interval.lost,
                      interval.duplicates,
                      {},
                      gathering.jitterHighest,
                      TakeLongestGapMs(stream.stream.number),
                      gathering.queued,
                      2 * disturbedLooks_ > looks_};
    if (interval.packets > 0 && stream.statistics.JitterMs() && gathering.looks > 0)
        point.jitterMs = gathering.jitterSum / gathering.looks;
    gathering.before = now;
    gathering.jitterSum = gathering.jitterHighest = 0;
    gathering.looks = gathering.queued = 0;
    return point;
}

double SeriesRecorder::TakeLongestGapMs(int32_t stream) {
    const std::lock_guard guard(lock_);
    return Seconds(std::exchange(gaps_[stream].longest, {})) * 1000;
}

void SeriesRecorder::Merge() {
    width_ *= 2;
    for (auto &[number, gathering] : streams_) {
        std::vector<SeriesPoint> merged;
        const std::vector<SeriesPoint> &points = gathering.points;
        for (std::size_t i = 0; i + 1 < points.size(); i += 2) merged.push_back(Merged(points[i], points[i + 1]));
        if (points.size() % 2 != 0) merged.push_back(points.back());
        gathering.points = std::move(merged);
    }
}

} // namespace tool
