// What disturbed a reception, as a list: bursts of loss, stretches without media, reconnections.
#pragma once

#include "reception/interval.h"

#include <map>
#include <string>
#include <vector>

namespace tool {

struct Event {
    Clock::duration at{}; // since the reception began
    std::string stream;   // its name; empty: all of them
    std::string what;     // "3 packets lost within 1.2 s"
};

class EventLog : public Watcher {
public:
    static constexpr std::size_t kMostEvents = 200; // the first ones; the rest is counted

    void Show(const Observation &observation) override;
    Outcome Finish(const Observation &observation) override;

    const std::vector<Event> &Events() const { return events_; } // in order of time once finished
    std::size_t LeftOut() const { return leftOut_; }

private:
    // Of one stream.
    struct Past {
        Counts before;             // at the last look
        Counts burst;              // before it began
        Clock::time_point latest;  // loss of the burst; of no burst: the clock's beginning
        Clock::duration burstAt{}; // since the reception began
        Clock::duration withoutMedia{};
    };
    void Add(Clock::duration at, const std::string &stream, const std::string &what);
    void LookForLoss(const StreamObservation &stream, const Observation &observation, Past &past);
    void EndBurst(const std::string &name, Past &past);

    std::map<int32_t, Past> pasts_; // by the stream's number
    uint64_t reconnects_ = 0;
    std::vector<Event> events_;
    std::size_t leftOut_ = 0;
};

} // namespace tool
