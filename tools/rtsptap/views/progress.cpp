#include "views/progress.h"

#include "cli/console.h"
#include "reception/interval.h"

#include <algorithm>
#include <cstdio>

namespace tool {
namespace {

using std::chrono::milliseconds;

constexpr auto kRedraw = milliseconds(250);
constexpr int64_t kBarWidth = 20;

class Progress : public Watcher {
public:
    Progress(milliseconds duration, milliseconds split, bool shows)
        : duration_(duration), split_(split), shows_(shows) {}

    void Show(const Observation &observation) override {
        if (!shows_ || observation.now - lastShown_ < kRedraw) return;
        lastShown_ = observation.now;
        uint64_t bytes = 0;
        Clock::time_point first = observation.now;
        for (const StreamObservation &stream : observation.streams) {
            bytes += stream.statistics.Bytes();
            if (stream.statistics.Packets() > 0) first = std::min(first, stream.statistics.FirstArrival());
        }
        const auto passed = std::chrono::duration_cast<milliseconds>(observation.now - first);
        const std::string state = observation.state == "playing" ? "" : ", " + observation.state;
        DrawLines({ProgressLine(passed, duration_, split_, bytes) + state});
    }

    Outcome Finish(const Observation &) override {
        if (shows_) KeepLines();
        return {};
    }

private:
    const milliseconds duration_;
    const milliseconds split_;
    const bool shows_;
    Clock::time_point lastShown_{};
};

} // namespace

std::string ProgressLine(milliseconds elapsed, milliseconds duration, milliseconds split, uint64_t bytes) {
    const bool toFile = duration.count() == 0; // the bar is that of the current file
    const milliseconds whole = toFile ? split : duration;
    const milliseconds done = toFile ? elapsed % split : std::min(elapsed, duration);
    const auto filled = static_cast<std::size_t>(kBarWidth * done.count() / whole.count());
    std::string line = "[" + std::string(filled, '#') + std::string(kBarWidth - filled, '.') + "] ";
    line += ElapsedText(done) + " of " + ElapsedText(whole) + ", " + ElapsedText(whole - done) + " left";
    if (split.count() > 0) line += ", file " + std::to_string(elapsed / split + 1);
    char size[32];
    std::snprintf(size, sizeof size, ", %.1f MB", static_cast<double>(bytes) / 1e6);
    return line + size;
}

std::unique_ptr<Watcher> MakeProgress(milliseconds duration, milliseconds split, const ConsoleSettings &console) {
    return std::make_unique<Progress>(duration, split, !console.quiet && IsTerminal());
}

} // namespace tool
