#include "views/watchers.h"

#include "base/codecs.h"
#include "base/text.h"

#include <algorithm>

namespace tool {
namespace {

bool IsOf(const StreamObservation &stream, const std::string &codec) {
    const int32_t type = CodecTypeOfName(codec);
    return type != 0 ? stream.stream.codecType == type : SameText(stream.stream.codec, codec);
}

bool Carries(const StreamObservation &stream, const std::string &codec) {
    return IsOf(stream, codec) && stream.statistics.Packets() > 0;
}

// From the first packet to the end: of streams that stop early the rate is lower.
double BitsPerSecond(const Observation &observation) {
    Clock::time_point end = observation.now;
    Clock::time_point first = end;
    uint64_t bytes = 0;
    for (const auto &[stream, statistics, ended] : observation.streams) {
        if (statistics.Packets() == 0) continue;
        first = std::min(first, statistics.FirstArrival());
        end = std::max(end, statistics.LastArrival());
        bytes += statistics.Bytes();
    }
    const double seconds = std::chrono::duration<double>(end - first).count();
    return seconds > 0 ? static_cast<double>(bytes) * 8 / seconds : 0;
}

class HealthCheck : public Watcher {
public:
    explicit HealthCheck(const HealthSettings &settings) : settings_(settings) {}

    // What a description does not have, no waiting will bring.
    void Show(const Observation &observation) override {
        if (observation.streams.empty() || !missing_.empty()) return;
        for (const std::string &codec : settings_.expectedCodecs)
            if (std::none_of(observation.streams.begin(), observation.streams.end(),
                             [&codec](const StreamObservation &stream) { return IsOf(stream, codec); }))
                missing_ = codec;
    }
    bool HasFailed() const override { return !missing_.empty(); }

    Outcome Finish(const Observation &observation) override {
        if (HasFailed()) return {ExitCode::kHealthLimit, "health: no stream carries " + missing_};
        const auto arrived = [](const StreamObservation &stream) { return stream.statistics.Packets() > 0; };
        if (std::none_of(observation.streams.begin(), observation.streams.end(), arrived)) return {};
        CheckLoss(observation);
        CheckGaps(observation);
        CheckRate(observation);
        for (const std::string &codec : settings_.expectedCodecs) CheckCodec(codec, observation);
        if (findings_.empty()) return {};
        return {ExitCode::kHealthLimit, "health: " + findings_};
    }

private:
    void Add(const std::string &finding) { findings_ += (findings_.empty() ? "" : "; ") + finding; }

    void CheckLoss(const Observation &observation) {
        if (!settings_.maxLossPercent) return;
        for (const auto &[stream, statistics, ended] : observation.streams)
            if (statistics.LossPercent() > *settings_.maxLossPercent)
                Add(NameOf(stream) + " lost " + Formatted("%.2f %%", statistics.LossPercent()) +
                    " of its packets, allowed are " + Formatted("%.2f %%", *settings_.maxLossPercent));
    }

    void CheckGaps(const Observation &observation) {
        if (!settings_.maxGap) return;
        for (const auto &[stream, statistics, ended] : observation.streams)
            if (statistics.LongestGap() > *settings_.maxGap)
                Add(NameOf(stream) + " brought nothing for " + TimeText(statistics.LongestGap()) +
                    ", allowed are " + TimeText(*settings_.maxGap));
    }

    void CheckRate(const Observation &observation) {
        const double rate = BitsPerSecond(observation);
        if (settings_.minBitsPerSecond && rate < *settings_.minBitsPerSecond)
            Add("the rate was " + RateText(rate) + ", at least " + RateText(*settings_.minBitsPerSecond) +
                " are wanted");
    }

    void CheckCodec(const std::string &codec, const Observation &observation) {
        const auto carries = [&codec](const StreamObservation &stream) { return Carries(stream, codec); };
        if (std::none_of(observation.streams.begin(), observation.streams.end(), carries))
            Add("no stream delivered " + codec);
    }

    const HealthSettings settings_;
    std::string findings_;
    std::string missing_; // a codec that no stream has
};

} // namespace

std::unique_ptr<Watcher> MakeHealthCheck(const HealthSettings &settings) {
    return std::make_unique<HealthCheck>(settings);
}

} // namespace tool
