#include "reception/observation.h"

#include "base/text.h"

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

std::string JitterText(const std::optional<double> &milliseconds) {
    if (!milliseconds) return "-";
    return Formatted(*milliseconds < 100 ? "%.1f ms" : "%.0f ms", *milliseconds);
}

} // namespace tool
