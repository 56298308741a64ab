#include "views/watchers.h"

#include "base/console.h"
#include "base/text.h"

#include <algorithm>

namespace tool {
namespace {

using std::chrono::milliseconds;

constexpr auto kRedraw = milliseconds(250);
constexpr auto kPlainLines = milliseconds(10000); // where nothing is redrawn
constexpr std::size_t kPlainColumns = 55;         // without the bar
constexpr int64_t kBarWidth = 20;

struct Length {
    milliseconds duration; // 0: none
    milliseconds split;    // of one file; 0: there is one only
};

// "[######..............] 00:18 of 01:00, 00:42 left, file 2, 3.4 MB"; with less where there is less room.
std::string ProgressLine(milliseconds elapsed, Length length, uint64_t bytes, std::size_t columns) {
    const bool toFile = length.duration.count() == 0; // the bar is that of the current file
    const milliseconds whole = toFile ? length.split : length.duration;
    const milliseconds done = toFile ? elapsed % length.split : std::min(elapsed, whole);
    const auto filled = static_cast<std::size_t>(kBarWidth * done.count() / whole.count());
    const std::string bar = "[" + std::string(filled, '#') + std::string(kBarWidth - filled, '.') + "] ";
    const std::string time = ElapsedText(done) + " of " + ElapsedText(whole);
    const std::string left = ", " + ElapsedText(whole - done) + " left";
    std::string rest;
    if (length.split.count() > 0) rest = ", file " + std::to_string(elapsed / length.split + 1);
    rest += Formatted(", %.1f MB", static_cast<double>(bytes) / 1e6);
    for (const std::string &line : {bar + time + left + rest, time + left + rest})
        if (line.size() <= columns) return line;
    return time + rest;
}

class Progress : public Watcher {
public:
    explicit Progress(Length length) : length_(length) {}

    void Show(const Observation &observation) override {
        if (observation.now - lastShown_ < (redraws_ ? kRedraw : kPlainLines)) return;
        lastShown_ = observation.now;
        Draw(observation, observation.IsPlaying() ? "" : Printable(observation.state));
    }

    // Once more, over the "^C" of the terminal.
    Outcome Finish(const Observation &observation) override {
        if (redraws_) Draw(observation, "");
        KeepLines();
        return {};
    }

private:
    void Draw(const Observation &observation, const std::string &state) const {
        if (observation.streams.empty()) return;
        uint64_t bytes = 0;
        Clock::time_point first = observation.now;
        for (const StreamObservation &stream : observation.streams) {
            bytes += stream.statistics.Bytes();
            if (stream.statistics.Packets() > 0) first = std::min(first, stream.statistics.FirstArrival());
        }
        const auto passed = std::chrono::duration_cast<milliseconds>(observation.now - first);
        const std::string line = ProgressLine(passed, length_, bytes, redraws_ ? TerminalColumns() : kPlainColumns);
        if (!redraws_) return PrintNotice(line + (state.empty() ? "" : ", " + state));
        DrawLines(state.empty() ? std::vector{line} : std::vector{line, state});
    }

    const Length length_;
    const bool redraws_ = MayRedraw();
    Clock::time_point lastShown_{};
};

} // namespace

std::unique_ptr<Watcher> MakeProgress(milliseconds duration, milliseconds split) {
    return std::make_unique<Progress>(Length{duration, split});
}

} // namespace tool
