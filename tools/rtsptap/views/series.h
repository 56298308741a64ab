// How the streams went over time, second by second, for plots. Of long receptions neighbouring seconds are merged,
// so that the memory stays bounded.
#pragma once

#include "reception/interval.h"
#include "reception/reception.h"

#include <map>
#include <mutex>
#include <optional>
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

double BitsPerSecond(const SeriesPoint &point);
std::optional<double> LossPercent(const SeriesPoint &point); // none when nothing was expected
std::optional<double> MeanGapMs(const SeriesPoint &point);   // none when nothing arrived

class SeriesRecorder : public Watcher {
public:
    static constexpr std::size_t kMostPoints = 360; // then merged to half

    PacketObserver Observer(); // notes the gaps between packets

    void Show(const Observation &observation) override; // the command's thread, as all below
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
    static void NoteJitter(const StreamStatistics &statistics, Gathering &gathering);
    void Complete(const Observation &observation);
    SeriesPoint TakePoint(const StreamObservation &stream, const Observation &observation);
    double TakeLongestGapMs(int32_t stream);
    void Merge();

    std::map<int32_t, Gathering> streams_; // by the stream's number
    double begin_ = 0;                     // of the points that are gathered for
    double width_ = 1;                     // of a point, in seconds
    int looks_ = 0;                        // during them
    int disturbedLooks_ = 0;
    Observation last_;

    std::mutex lock_; // guards gaps_, which readers fill
    std::map<int32_t, Gaps> gaps_;
};

} // namespace tool
