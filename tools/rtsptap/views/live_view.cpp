#include "views/live_view.h"

#include "cli/console.h"
#include "reception/interval.h"

#include <cinttypes>
#include <cstdio>
#include <deque>
#include <map>

namespace tool {
namespace {

constexpr auto kRedraw = std::chrono::milliseconds(250);
constexpr auto kPlainLines = std::chrono::seconds(10);
constexpr auto kRateWindow = std::chrono::seconds(2); // rates are averages over so long
constexpr double kSilenceSeconds = 2;
constexpr const char *kPlaying = "playing";

enum class Paint { kNone, kFaint, kYellow, kRed };

// What a stream did lately.
class Lately {
public:
    void Add(const Counts &counts) {
        counts_.push_back(counts);
        while (counts_.size() > 2 && counts.at - counts_[1].at >= kRateWindow) counts_.pop_front();
    }
    Interval Get() const { return counts_.empty() ? Interval{} : Between(counts_.front(), counts_.back()); }

private:
    std::deque<Counts> counts_;
};

std::string Formatted(const char *format, double value) {
    char text[48];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

// Up to seven characters.
std::string CountText(uint64_t count) {
    if (count < 10000000) return std::to_string(count);
    return Formatted(count < 1000000000 ? "%.1fM" : "%.0fM", static_cast<double>(count) / 1e6);
}

std::string JitterText(const StreamStatistics &statistics) {
    const std::optional<double> jitter = statistics.JitterMs();
    if (!jitter || statistics.Packets() == 0) return "-";
    return Formatted(*jitter < 100 ? "%.1f ms" : "%.0f ms", *jitter);
}

std::string SecondsText(double seconds) { return Formatted(seconds < 10 ? "%.1f s" : "%.0f s", seconds); }

class LiveView : public Watcher {
public:
    LiveView(bool quiet, bool redraws, bool colors) : quiet_(quiet), redraws_(redraws), colors_(colors) {}
    ~LiveView() override { KeepLines(); }

    void Show(const Observation &observation) override {
        if (quiet_) return;
        for (const StreamObservation &stream : observation.streams)
            lately_[stream.stream.number].Add(CountsOf(stream.statistics, observation.now));
        if (redraws_) return Redraw(observation);
        if (shown_ == Clock::time_point()) shown_ = observation.now;
        if (observation.now - shown_ < kPlainLines) return;
        shown_ = observation.now;
        for (const StreamObservation &stream : observation.streams) PrintPlain(stream, observation);
    }

    // The table of what arrived follows: the lines are of no more use.
    Outcome Finish(const Observation &) override {
        if (!quiet_ && redraws_) DrawLines({});
        return {};
    }

private:
    std::string Painted(const std::string &text, Paint paint) const {
        static constexpr const char *kCodes[] = {"", "\033[2m", "\033[33m", "\033[1;31m"};
        if (!colors_ || paint == Paint::kNone) return text;
        return kCodes[static_cast<int>(paint)] + text + "\033[0m";
    }

    // To the right of its column.
    std::string Cell(const std::string &text, std::size_t width, Paint paint = Paint::kNone) const {
        const std::string space(text.size() < width ? width - text.size() : 0, ' ');
        return " " + space + Painted(text, paint);
    }

    void Redraw(const Observation &observation) {
        if (observation.now - shown_ < kRedraw) return;
        shown_ = observation.now;
        std::vector<std::string> lines;
        char head[96];
        std::snprintf(head, sizeof head, "%-16s %11s %7s %6s %6s %6s %8s %5s %6s",
                      ElapsedText(observation.elapsed).c_str(), "rate", "packets", "lost", "loss", "reord.",
                      "jitter", "queue", "silent");
        if (!observation.streams.empty()) lines.push_back(Painted(head, Paint::kFaint));
        for (const StreamObservation &stream : observation.streams) lines.push_back(Line(stream, observation));
        if (observation.state != kPlaying) lines.push_back(Painted(Printable(observation.state), Paint::kYellow));
        DrawLines(lines);
    }

    std::string Line(const StreamObservation &stream, const Observation &observation) {
        const StreamStatistics &statistics = stream.statistics;
        const Interval lately = lately_[stream.stream.number].Get();
        const double silence = SilenceSeconds(stream, observation);
        const Paint loss = lately.lost > 0 ? Paint::kRed : Paint::kNone;
        char name[48];
        std::snprintf(name, sizeof name, "%-2" PRId32 " %-13.13s", stream.stream.number,
                      Printable(stream.stream.codec).c_str());
        return name + Cell(RateText(lately.bitsPerSecond), 11) + Cell(CountText(statistics.Packets()), 7) +
               Cell(CountText(statistics.Lost()), 6, loss) +
               Cell(Formatted("%.1f%%", statistics.LossPercent()), 6, loss) +
               Cell(CountText(statistics.Reordered()), 6) + Cell(JitterText(statistics), 8) +
               Cell(std::to_string(stream.queued), 5) +
               Cell(SecondsText(silence), 6, silence >= kSilenceSeconds ? Paint::kYellow : Paint::kNone);
    }

    void PrintPlain(const StreamObservation &stream, const Observation &observation) {
        const StreamStatistics &statistics = stream.statistics;
        char text[256];
        std::snprintf(text, sizeof text,
                      "%s %s: %s, %" PRIu64 " packets, %" PRIu64 " lost (%.2f %%), %" PRIu64
                      " reordered, jitter %s, queue %" PRId32 ", last packet %.1f s ago",
                      ElapsedText(observation.elapsed).c_str(), NameOf(stream.stream).c_str(),
                      RateText(lately_[stream.stream.number].Get().bitsPerSecond).c_str(), statistics.Packets(),
                      statistics.Lost(), statistics.LossPercent(), statistics.Reordered(),
                      JitterText(statistics).c_str(), stream.queued, SilenceSeconds(stream, observation));
        PrintNotice(text + (observation.state == kPlaying ? "" : ", " + observation.state));
    }

    const bool quiet_;
    const bool redraws_;
    const bool colors_;
    std::map<int32_t, Lately> lately_; // by the stream's number
    Clock::time_point shown_;
};

} // namespace

std::unique_ptr<Watcher> MakeLiveView(const ConsoleSettings &console) {
    // What the library prints would tear redrawn lines apart.
    const bool redraws = IsTerminal() && !console.verbose;
    return std::make_unique<LiveView>(console.quiet, redraws, console.color && MayUseColor());
}

} // namespace tool
