// What happened between two looks at a stream.
#pragma once

#include "reception/observation.h"

#include <cstdint>
#include <string>

namespace tool {

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

// Since the last packet; since the beginning when there was none.
double SilenceSeconds(const StreamObservation &stream, const Observation &observation);

std::string JitterText(const std::optional<double> &milliseconds); // "1.5 ms", "-" where it is not known

} // namespace tool
