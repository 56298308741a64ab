// What is known of a reception at one moment, what happened between two of them, and who wants to be told.
#pragma once

#include "base/outcome.h"
#include "base/settings.h"
#include "reception/statistics.h"
#include "session/session.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tool {

struct StreamObservation {
    Stream stream;
    StreamStatistics statistics; // since the beginning, over reconnections
    int32_t end = 0;             // why the session brings no more of it, a result code; 0: it may
};

constexpr const char *kPlaying = "playing";
constexpr const char *kWaitingForMedia = "waiting for media";

struct Observation {
    Clock::time_point now;
    Clock::duration elapsed{}; // since the first session began to play
    std::string state;         // kPlaying, kWaitingForMedia, "reconnecting, attempt 2", "ended"
    std::vector<StreamObservation> streams;
    bool hasServer = false; // false: packets come to local ports, without RTSP
    Transport transport = Transport::kUdp;
    int64_t receiveBufferBytes = 0; // granted for what comes over UDP; 0: nothing did
    uint64_t reconnects = 0;        // sessions that went on after one that had brought media

    bool IsPlaying() const { return state == kPlaying; }
};

// A stream's counts at one moment.
struct Counts {
    Clock::time_point at;
    uint64_t packets = 0;
    uint64_t bytes = 0;
    uint64_t lost = 0;
    uint64_t reordered = 0;
    uint64_t duplicates = 0;
};

Counts CountsOf(const StreamStatistics &statistics, Clock::time_point now);

struct Interval {
    double seconds = 0;
    uint64_t packets = 0;
    uint64_t bytes = 0;
    uint64_t lost = 0; // 0 also when packets of before arrived late and made losses good
    uint64_t reordered = 0;
    uint64_t duplicates = 0;
    double bitsPerSecond = 0;
    double lossPercent = 0; // of what was expected
};

Interval Between(const Counts &from, const Counts &to);

// How long a stream has been silent: since the last packet; since the beginning when there was none.
double SilenceSeconds(const StreamObservation &stream, const Observation &observation);

std::string JitterText(const std::optional<double> &milliseconds); // "1.5 ms", "-" where it is not known

// Views, logs, checks: each is shown the reception ten times a second, by the command's own thread.
class Watcher {
public:
    Watcher() = default;
    virtual ~Watcher() = default;
    Watcher(const Watcher &) = delete;
    Watcher &operator=(const Watcher &) = delete;

    virtual void Show(const Observation &observation) = 0;

    // Nothing more can come of it: the reception may end at once, Finish says why.
    virtual bool HasFailed() const { return false; }

    // Once, at the end, with what was known when the reception was over: writes what there is to write, and says
    // whether all was well.
    virtual Outcome Finish(const Observation &observation) = 0;
};

} // namespace tool
