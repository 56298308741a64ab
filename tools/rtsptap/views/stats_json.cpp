#include "views/watchers.h"

#include "base/outlet.h"
#include "base/text.h"
#include "base/writing.h"
#include "reception/observation.h"

#include <cerrno>
#include <cinttypes>
#include <cmath>
#include <ctime>
#include <map>
#include <nlohmann/json.hpp>

namespace tool {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kSchema = 1;
constexpr auto kInterval = std::chrono::seconds(1);

// Three places are enough; a number is short then.
double Rounded(double value) { return std::round(value * 1000) / 1000; }

Json Known(const std::optional<double> &value) { return value ? Json(Rounded(*value)) : Json(); }

double Milliseconds(Clock::duration length) {
    return Rounded(std::chrono::duration<double, std::milli>(length).count());
}

std::string WallClock() {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts = {};
    gmtime_r(&now.tv_sec, &parts);
    char seconds[32];
    std::strftime(seconds, sizeof seconds, "%Y-%m-%dT%H:%M:%S", &parts);
    return Formatted("%s.%03ldZ", seconds, now.tv_nsec / 1000000);
}

Json Begin(const char *type, const Observation &observation) {
    return {{"type", type},
            {"schema", kSchema},
            {"time", WallClock()},
            {"elapsed_s", Rounded(std::chrono::duration<double>(observation.elapsed).count())},
            {"state", observation.state},
            {"reconnects", observation.reconnects}};
}

Json IntervalOf(const Interval &interval) {
    return {{"seconds", Rounded(interval.seconds)},
            {"packets", interval.packets},
            {"bytes", interval.bytes},
            {"bits_per_second", std::llround(interval.bitsPerSecond)},
            {"lost", interval.lost},
            {"loss_percent", Rounded(interval.lossPercent)},
            {"reordered", interval.reordered},
            {"duplicates", interval.duplicates}};
}

Json TotalOf(const StreamStatistics &statistics) {
    return {{"packets", statistics.Packets()},
            {"bytes", statistics.Bytes()},
            {"bits_per_second", std::llround(statistics.BitsPerSecond())},
            {"expected", statistics.Expected()},
            {"lost", statistics.Lost()},
            {"loss_percent", Rounded(statistics.LossPercent())},
            {"reordered", statistics.Reordered()},
            {"duplicates", statistics.Duplicates()},
            {"dropped_by_kernel", statistics.DroppedByKernel()},
            {"longest_gap_ms", Milliseconds(statistics.LongestGap())},
            {"outages", statistics.Outages()},
            {"without_media_s", Rounded(std::chrono::duration<double>(statistics.WithoutMedia()).count())}};
}

Json StreamOf(const StreamObservation &stream) {
    return {{"stream", stream.stream.number}, {"codec", stream.stream.codec}};
}

Json SinceLastPacket(const StreamObservation &stream, const Observation &observation) {
    if (stream.statistics.Packets() == 0) return {};
    return Rounded(SilenceSeconds(stream, observation) * 1000);
}

Json SummaryOf(const StreamObservation &stream) {
    const StreamStatistics &statistics = stream.statistics;
    Json row = StreamOf(stream);
    row["clock_rate"] = stream.stream.clockRate > 0 ? Json(stream.stream.clockRate) : Json();
    row.update(TotalOf(statistics));
    row["jitter_ms"] = {{"last", Known(statistics.JitterMs())},
                        {"mean", Known(statistics.MeanJitterMs())},
                        {"max", Known(statistics.MaxJitterMs())}};
    const bool any = statistics.Packets() > 0;
    row["first_sequence"] = any ? Json(statistics.FirstSequence()) : Json();
    row["last_sequence"] = any ? Json(statistics.LastSequence()) : Json();
    row["ssrc"] = any ? Json(Formatted("0x%08" PRIx32, statistics.Ssrc())) : Json();
    return row;
}

class StatsJson : public Watcher {
public:
    StatsJson(FILE *out, bool owned, std::string name)
        : out_(out), owned_(owned), name_(std::move(name)), outlet_(fileno(out)) {}
    ~StatsJson() override {
        if (owned_ && out_ != nullptr) std::fclose(out_);
    }

    void Show(const Observation &observation) override {
        if (before_ == Clock::time_point()) before_ = observation.now;
        const bool due = observation.now - before_ >= kInterval;
        outlet_.Pass();
        for (const StreamObservation &stream : observation.streams)
            counts_.try_emplace(stream.stream.number, CountsOf(StreamStatistics(), observation.now));
        if (!due || HasFailed()) return;
        // Due times do not drift; those missed are left out.
        before_ += kInterval * ((observation.now - before_) / kInterval);
        Json line = Begin("interval", observation);
        line["streams"] = Json::array();
        for (const StreamObservation &stream : observation.streams)
            line["streams"].push_back(RowOf(stream, observation));
        Write(line);
    }

    bool HasFailed() const override { return !failure_.IsOk(); }

    Outcome Finish(const Observation &observation) override {
        if (!HasFailed()) WriteSummary(observation);
        outlet_.Flush();
        NoteFailure();
        if (!HasFailed() && owned_ && std::fclose(std::exchange(out_, nullptr)) != 0)
            failure_ = WriteFailure(name_, errno);
        return failure_;
    }

private:
    Json RowOf(const StreamObservation &stream, const Observation &observation) {
        const Counts now = CountsOf(stream.statistics, observation.now);
        Counts &before = counts_[stream.stream.number];
        Json row = StreamOf(stream);
        row["interval"] = IntervalOf(Between(before, now));
        row["total"] = TotalOf(stream.statistics);
        row["jitter_ms"] = Known(stream.statistics.JitterMs());
        row["queued"] = stream.statistics.Queued();
        row["since_last_packet_ms"] = SinceLastPacket(stream, observation);
        before = now;
        return row;
    }

    void WriteSummary(const Observation &observation) {
        Json line = Begin("summary", observation);
        line["streams"] = Json::array();
        for (const StreamObservation &stream : observation.streams) line["streams"].push_back(SummaryOf(stream));
        Write(line);
    }

    // Names come from the server: what is no UTF-8 in them is replaced.
    void Write(const Json &line) {
        outlet_.Put(line.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n");
        NoteFailure();
    }
    void NoteFailure() {
        if (outlet_.Error() != 0) failure_ = WriteFailure(name_, outlet_.Error());
    }

    FILE *out_;
    const bool owned_;
    const std::string name_;
    Outlet outlet_;
    Outcome failure_;
    std::map<int32_t, Counts> counts_; // of the line before, by the stream's number
    Clock::time_point before_;
};

} // namespace

Outcome OpenStatsJson(const std::string &file, FILE *standardOutput, std::unique_ptr<Watcher> &watcher) {
    const bool owned = file != "-";
    FILE *out = owned ? std::fopen(file.c_str(), "we") : standardOutput;
    if (out == nullptr) return WriteFailure(file, errno);
    watcher = std::make_unique<StatsJson>(out, owned, owned ? file : kStandardOutput);
    return {};
}

} // namespace tool
