#include "commands/audience.h"

#include "base/console.h"
#include "base/text.h"
#include "base/writing.h"
#include "views/watchers.h"

#include <algorithm>
#include <filesystem>

namespace tool {
namespace {

// "recorded walk.mp4: 00:10, 1.9 MB, no gaps"
class LastLine : public Watcher {
public:
    explicit LastLine(const OutputFile &file)
        : name_(file.name), toPipe_(file.path.empty()), written_(file.written) {}

    void Show(const Observation &) override {}

    Outcome Finish(const Observation &observation) override {
        uint64_t bytes = 0;
        const std::vector<std::string> paths = written_->Paths();
        for (const std::string &path : paths) {
            std::error_code error;
            const uintmax_t size = std::filesystem::file_size(path, error);
            bytes += error ? 0 : size;
        }
        if (toPipe_ ? Received(observation).count() == 0 : bytes == 0) return {};
        std::string line = "recorded " + (paths.empty() ? name_ : paths.front());
        if (paths.size() > 1) line += " to " + paths.back() + ", " + std::to_string(paths.size()) + " files";
        line += ": " + ElapsedText(written_->Duration().value_or(Received(observation)));
        if (!toPipe_) line += Formatted(", %.1f MB", static_cast<double>(bytes) / 1e6);
        PrintNotice(line + ", " + Gaps(observation));
        return {};
    }

private:
    static Clock::duration Received(const Observation &observation) {
        Clock::time_point first = observation.now;
        Clock::time_point last = {};
        for (const StreamObservation &stream : observation.streams) {
            if (stream.statistics.Packets() == 0) continue;
            first = std::min(first, stream.statistics.FirstArrival());
            last = std::max(last, stream.statistics.LastArrival());
        }
        return std::max(last - first, Clock::duration(0));
    }

    // Of the stream that has most of them.
    static std::string Gaps(const Observation &observation) {
        uint64_t outages = 0;
        uint64_t lost = 0;
        Clock::duration silence{0};
        for (const StreamObservation &stream : observation.streams) {
            outages = std::max(outages, stream.statistics.Outages());
            silence = std::max(silence, stream.statistics.WithoutMedia());
            lost += stream.statistics.Lost();
        }
        if (outages == 0 && lost == 0) return "no gaps";
        const std::string seconds = TimeText(std::chrono::duration_cast<std::chrono::milliseconds>(silence));
        std::string text;
        if (outages > 0)
            text = std::to_string(outages) + (outages == 1 ? " gap of " : " gaps, together ") + seconds;
        if (lost > 0) text += (text.empty() ? "" : ", ") + std::to_string(lost) + " packets lost";
        return text;
    }

    const std::string name_;
    const bool toPipe_;
    const std::shared_ptr<WrittenFiles> written_;
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
    watchers.push_back(MakeFinalTable(table));
    watchers.push_back(MakeHealthCheck(settings.health));
    return {};
}

} // namespace

Outcome MakePlayingWatchers(const ReceptionSettings &settings, FILE *standardOutput, Watchers &watchers) {
    FILE *const table = IsQuiet() ? nullptr : settings.statsJson == "-" ? stderr : standardOutput;
    return CollectWatchers(settings, standardOutput, table, MakeLiveView(), watchers);
}

Outcome MakeRecordingWatchers(const ReceptionSettings &settings, const OutputFile &file, FILE *standardOutput,
                              Watchers &watchers) {
    const bool ofKnownLength = settings.duration.count() > 0 || file.split.count() > 0;
    if (!MayRedraw()) PrintNotice("recording to " + file.name);
    Outcome outcome =
        CollectWatchers(settings, standardOutput, IsQuiet() ? nullptr : stderr,
                        ofKnownLength ? MakeProgress(settings.duration, file.split) : MakeLiveView(), watchers);
    watchers.push_back(std::make_unique<LastLine>(file));
    return outcome;
}

Outcome Play(const ServerSettings &server, const ReceptionSettings &settings, const LibraryOutput &output,
             Interruption &interruption) {
    Watchers watchers;
    Outcome failed = MakePlayingWatchers(settings, output.Data(), watchers);
    if (!failed.IsOk()) return failed;
    return ReceiveFromServer(server, settings.duration, AudienceOf(watchers), interruption);
}

std::string CheckStandardOutput(const OutputSettings &output, const ReceptionSettings &settings) {
    const bool isShared = settings.statsJson == "-" && output.file == "-";
    return isShared ? "--output and --stats-json cannot both go to standard output" : "";
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
