#include "views/events.h"

#include "base/text.h"

#include <algorithm>
#include <utility>

namespace tool {
namespace {

constexpr auto kBurstEnd = std::chrono::seconds(1); // without further loss

} // namespace

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
