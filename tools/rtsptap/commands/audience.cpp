#include "commands/audience.h"

#include "base/console.h"
#include "base/writing.h"
#include "media/sink.h"
#include "views/health.h"
#include "views/live_view.h"
#include "views/progress.h"
#include "views/report.h"
#include "views/stats_json.h"
#include "views/warnings.h"

namespace tool {
namespace {

// What arrived, once it is all over, and whether every stream delivered.
class FinalTable : public Watcher {
public:
    explicit FinalTable(FILE *out) : out_(out) {}

    void Show(const Observation &) override {}

    Outcome Finish(const Observation &observation) override {
        if (observation.streams.empty()) return {};
        const char *name = out_ == stderr ? "standard error" : kStandardOutput;
        if (out_ != nullptr)
            if (Outcome failed = WriteText(out_, ReportTable(observation, ColumnsOf(out_)), name); !failed.IsOk())
                return failed;
        return JudgeStreams(observation.streams);
    }

private:
    FILE *const out_; // null: nobody wants to see it
};

Outcome AddStatsJson(const ReceptionSettings &settings, FILE *standardOutput, Watchers &watchers) {
    if (settings.statsJson.empty()) return {};
    std::unique_ptr<Watcher> stats;
    Outcome outcome = OpenStatsJson(settings.statsJson, standardOutput, stats);
    if (outcome.IsOk()) watchers.push_back(std::move(stats));
    return outcome;
}

Outcome CollectWatchers(const ReceptionSettings &settings, FILE *standardOutput, FILE *table,
                        std::unique_ptr<Watcher> view, Watchers &watchers) {
    if (Outcome failed = AddStatsJson(settings, standardOutput, watchers); !failed.IsOk()) return failed;
    watchers.push_back(std::move(view));
    watchers.push_back(MakeWarnings());
    watchers.push_back(std::make_unique<FinalTable>(table));
    watchers.push_back(MakeHealthCheck(settings.health));
    return {};
}

} // namespace

Outcome MakePlayingWatchers(const ReceptionSettings &settings, FILE *standardOutput, Watchers &watchers) {
    FILE *const table = IsQuiet() ? nullptr : settings.statsJson == "-" ? stderr : standardOutput;
    return CollectWatchers(settings, standardOutput, table, MakeLiveView(), watchers);
}

Outcome MakeRecordingWatchers(const ReceptionSettings &settings, const OutputSettings &output, FILE *standardOutput,
                              Watchers &watchers) {
    const bool ofKnownLength = settings.duration.count() > 0 || output.split.count() > 0;
    if (settings.statsJson == "-" && output.file == "-")
        return {ExitCode::kUsage, "standard output cannot hold both the recording and --stats-json"};
    if (!MayRedraw()) PrintNotice("recording to " + (output.file == "-" ? kStandardOutput : output.file));
    return CollectWatchers(settings, standardOutput, IsQuiet() ? nullptr : stderr,
                           ofKnownLength ? MakeProgress(settings.duration, output.split) : MakeLiveView(),
                           watchers);
}

std::chrono::milliseconds WaitingInOrder(ServerSettings &server) {
    const std::chrono::milliseconds latency = server.latency.value_or(kUsualLatency);
    server.latency.reset();
    return latency;
}

Audience AudienceOf(const Watchers &watchers) {
    Audience audience;
    for (const std::unique_ptr<Watcher> &watcher : watchers) audience.watchers.push_back(watcher.get());
    return audience;
}

Audience AudienceOf(const Watchers &watchers, const OutputFile &file) {
    Audience audience = AudienceOf(watchers);
    audience.makeSink = [&file](const OpenedSession &opened, std::unique_ptr<PacketSink> &sink) {
        return MakeSink(file, opened.formats, sink);
    };
    return audience;
}

} // namespace tool
