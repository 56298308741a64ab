#include "reception/interval.h"

#include <cstdio>

namespace tool {
namespace {

uint64_t Grown(uint64_t from, uint64_t to) { return to > from ? to - from : 0; }

} // namespace

Counts CountsOf(const StreamStatistics &statistics, Clock::time_point now) {
    return {now,
            statistics.Packets(),
            statistics.Bytes(),
            statistics.Lost(),
            statistics.Reordered(),
            statistics.Duplicates()};
}

Interval Between(const Counts &from, const Counts &to) {
    Interval interval;
    interval.seconds = std::chrono::duration<double>(to.at - from.at).count();
    interval.packets = Grown(from.packets, to.packets);
    interval.bytes = Grown(from.bytes, to.bytes);
    interval.lost = Grown(from.lost, to.lost);
    interval.reordered = Grown(from.reordered, to.reordered);
    interval.duplicates = Grown(from.duplicates, to.duplicates);
    if (interval.seconds > 0) interval.bitsPerSecond = static_cast<double>(interval.bytes) * 8 / interval.seconds;
    const auto expected = static_cast<double>(interval.packets - interval.duplicates + interval.lost);
    if (interval.lost > 0) interval.lossPercent = 100 * static_cast<double>(interval.lost) / expected;
    return interval;
}

double SilenceSeconds(const StreamObservation &stream, const Observation &observation) {
    if (stream.statistics.Packets() == 0) return std::chrono::duration<double>(observation.elapsed).count();
    return std::chrono::duration<double>(observation.now - stream.statistics.LastArrival()).count();
}

std::string RateText(double bitsPerSecond) {
    char text[32];
    if (bitsPerSecond < 999500)
        std::snprintf(text, sizeof text, "%.0f kbit/s", bitsPerSecond / 1e3);
    else
        std::snprintf(text, sizeof text, bitsPerSecond < 99.95e6 ? "%.2f Mbit/s" : "%.0f Mbit/s",
                      bitsPerSecond / 1e6);
    return text;
}

std::string ElapsedText(Clock::duration length) {
    const auto seconds = std::chrono::round<std::chrono::seconds>(length).count();
    char text[32];
    if (seconds >= 3600)
        std::snprintf(text, sizeof text, "%lld:%02d:%02d", static_cast<long long>(seconds / 3600),
                      static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60));
    else
        std::snprintf(text, sizeof text, "%02d:%02d", static_cast<int>(seconds / 60),
                      static_cast<int>(seconds % 60));
    return text;
}

} // namespace tool
