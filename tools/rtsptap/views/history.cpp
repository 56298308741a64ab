#include "views/history.h"

#include "base/text.h"

#include <algorithm>
#include <utility>

namespace tool {
namespace {

constexpr auto kBurstEnd = std::chrono::seconds(1); // without further loss
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

PacketObserver SeriesRecorder::Observer() {
    return [this](const Stream &stream, const RTPStreamData &, Clock::time_point arrival) {
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
    if (full) MergePairs();
}

// Jitter that rises between two looks and falls again shows where it is the highest of all.
void SeriesRecorder::NoteStreams(const Observation &observation) {
    for (const StreamObservation &stream : observation.streams) {
        Gathering &gathering = streams_[stream.stream.number];
        const double jitter = stream.statistics.JitterMs().value_or(0);
        const double record = stream.statistics.MaxJitterMs().value_or(0);
        const double highest = record > gathering.jitterRecord ? record : jitter;
        gathering.jitterSum += jitter;
        gathering.jitterHighest = std::max(gathering.jitterHighest, highest);
        gathering.jitterRecord = record;
        gathering.queued = std::max(gathering.queued, stream.statistics.Queued());
        ++gathering.looks;
    }
}

SeriesPoint SeriesRecorder::TakePoint(const StreamObservation &stream, const Observation &observation) {
    Gathering &gathering = streams_[stream.stream.number];
    const Counts now = CountsOf(stream.statistics, observation.now);
    const Interval interval = Between(gathering.before, now);
    SeriesPoint point{.begin = begin_,
                      .end = Seconds(observation.elapsed),
                      .packets = interval.packets,
                      .bytes = interval.bytes,
                      .lost = interval.lost,
                      .duplicates = interval.duplicates,
                      .jitterMs = {},
                      .highestJitterMs = gathering.jitterHighest,
                      .longestGapMs = TakeLongestGapMs(stream.stream.number),
                      .queued = gathering.queued,
                      .disturbed = 2 * disturbedLooks_ > looks_};
    if (interval.packets > 0 && stream.statistics.JitterMs() && gathering.looks > 0)
        point.jitterMs = gathering.jitterSum / gathering.looks;
    gathering.before = now;
    gathering.jitterSum = gathering.jitterHighest = 0;
    gathering.looks = gathering.queued = 0;
    return point;
}

double SeriesRecorder::TakeLongestGapMs(int32_t stream) {
    return Seconds(std::exchange(gaps_[stream].longest, {})) * 1000;
}

void SeriesRecorder::MergePairs() {
    width_ *= 2;
    for (auto &[number, gathering] : streams_) {
        std::vector<SeriesPoint> &points = gathering.points;
        for (std::size_t i = 0; i + 1 < points.size(); i += 2) points[i / 2] = Merged(points[i], points[i + 1]);
        if (points.size() % 2 != 0) points[points.size() / 2] = points.back();
        points.resize((points.size() + 1) / 2);
    }
}

void EventLog::Show(const Observation &observation) {
    if (observation.reconnects > reconnects_) Add(observation.elapsed, "", "reconnected");
    reconnects_ = observation.reconnects;
    for (const StreamObservation &stream : observation.streams) {
        Past &past = pasts_[stream.stream.number];
        const Clock::duration gap = stream.statistics.WithoutMedia() - past.withoutMedia;
        if (gap.count() > 0)
            Add(observation.elapsed - gap, NameOf(stream.stream), "nothing arrived for " + TimeText(gap));
        past.withoutMedia += gap;
        LookForLoss(stream, observation, past);
    }
}

Outcome EventLog::Finish(const Observation &observation) {
    Show(observation);
    for (const StreamObservation &stream : observation.streams)
        EndBurst(NameOf(stream.stream), pasts_[stream.stream.number]);
    std::stable_sort(events_.begin(), events_.end(),
                     [](const Event &left, const Event &right) { return left.at < right.at; });
    return {};
}

void EventLog::Add(Clock::duration at, const std::string &stream, const std::string &what) {
    if (events_.size() < kMostEvents)
        events_.push_back({std::max(at, Clock::duration()), stream, what});
    else
        ++leftOut_;
}

void EventLog::LookForLoss(const StreamObservation &stream, const Observation &observation, Past &past) {
    const Counts now = CountsOf(stream.statistics, observation.now);
    if (now.lost > past.before.lost) {
        if (past.latest == Clock::time_point()) {
            past.burst = past.before;
            past.burstAt = observation.elapsed;
        }
        past.latest = observation.now;
    }
    past.before = now;
    if (now.at - past.latest >= kBurstEnd) EndBurst(NameOf(stream.stream), past);
}

// Packets that came late have lost nothing.
void EventLog::EndBurst(const std::string &name, Past &past) {
    const Clock::time_point latest = std::exchange(past.latest, {});
    if (latest == Clock::time_point() || past.before.lost <= past.burst.lost) return;
    const uint64_t lost = past.before.lost - past.burst.lost;
    const std::string within =
        past.burst.at == Clock::time_point() ? "" : " within " + TimeText(latest - past.burst.at);
    Add(past.burstAt, name, std::to_string(lost) + (lost == 1 ? " packet" : " packets") + " lost" + within);
}

} // namespace tool
