// How a reception went over time: points for plots, second by second, and a list of what disturbed it. Both are of
// bounded size: of long receptions neighbouring seconds are merged, and the last events are only counted.
#pragma once

#include "reception/observation.h"
#include "reception/intake.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tool {

// A stream during one stretch of time.
struct SeriesPoint {
    double begin = 0; // seconds since the reception began
    double end = 0;
    uint64_t packets = 0;
    uint64_t bytes = 0;
    uint64_t lost = 0;
    uint64_t duplicates = 0;
    std::optional<double> jitterMs; // average; none when nothing arrived
    double highestJitterMs = 0;
    double longestGapMs = 0; // before a packet that arrived
    int32_t queued = 0;      // the most
    bool disturbed = false;  // not playing for most of it
};

// The command's thread, but for the observer.
class SeriesRecorder : public Watcher {
public:
    static constexpr std::size_t kMostPoints = 360; // then merged to half

    PacketObserver Observer(); // notes the gaps between packets, on the threads that read

    void Show(const Observation &observation) override;
    Outcome Finish(const Observation &observation) override;

    const std::vector<SeriesPoint> &PointsOf(int32_t stream) const;
    const Observation &Last() const { return last_; } // at the end of the reception

private:
    // What is gathered of a stream until the point is complete.
    struct Gathering {
        Counts before;
        double jitterSum = 0;
        double jitterHighest = 0;
        double jitterRecord = 0; // of all points
        int looks = 0;
        int32_t queued = 0;
        std::vector<SeriesPoint> points;
    };
    struct Gaps {
        Clock::time_point last;
        Clock::duration longest{};
    };

    void NoteStreams(const Observation &observation);
    void Complete(const Observation &observation);
    SeriesPoint TakePoint(const StreamObservation &stream, const Observation &observation);
    double TakeLongestGapMs(int32_t stream);
    void MergePairs();

    std::map<int32_t, Gathering> streams_; // by the stream's number
    double begin_ = 0;                     // of the points that are gathered for
    double width_ = 1;                     // of a point, in seconds
    int looks_ = 0;                        // during them
    int disturbedLooks_ = 0;
    Observation last_;

    std::map<int32_t, Gaps> gaps_;
};

struct Event {
    Clock::duration at{}; // since the reception began
    std::string stream;   // its name; empty: all of them
    std::string what;     // "3 packets lost within 1.2 s"
};

// Bursts of loss, stretches without media, reconnections.
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
