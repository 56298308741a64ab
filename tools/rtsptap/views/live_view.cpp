#include "views/live_view.h"

#include "base/console.h"
#include "base/text.h"
#include "reception/interval.h"
#include "views/columns.h"

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

// Up to seven characters.
std::string CountText(uint64_t count) {
    if (count < 10000000) return std::to_string(count);
    return Formatted(count < 1000000000 ? "%.1fM" : "%.0fM", static_cast<double>(count) / 1e6);
}

std::string SecondsText(double seconds) { return Formatted(seconds < 10 ? "%.1f s" : "%.0f s", seconds); }

// What a line is made of.
struct Row {
    const StreamObservation &stream;
    Interval lately;
    double silence = 0;

    Paint LossPaint() const { return lately.lost > 0 ? Paint::kRed : Paint::kNone; }
};

struct Cell {
    std::string text;
    Paint paint = Paint::kNone;
};

struct Column {
    const char *title;
    std::size_t width;
    int rank;
    Cell (*cell)(const Row &row);
};

constexpr Column kColumns[] = {
    {"rate", 11, 1, [](const Row &row) -> Cell { return {RateText(row.lately.bitsPerSecond)}; }},
    {"packets", 7, 6, [](const Row &row) -> Cell { return {CountText(row.stream.statistics.Packets())}; }},
    {"lost", 6, 5,
     [](const Row &row) -> Cell {
         return {CountText(row.stream.statistics.Lost()), row.LossPaint()};
     }},
    {"loss", 6, 2,
     [](const Row &row) -> Cell {
         return {Formatted("%.1f%%", row.stream.statistics.LossPercent()), row.LossPaint()};
     }},
    {"reord.", 6, 7, [](const Row &row) -> Cell { return {CountText(row.stream.statistics.Reordered())}; }},
    {"jitter", 8, 3, [](const Row &row) -> Cell { return {JitterText(row.stream.statistics.JitterMs())}; }},
    {"queue", 5, 8, [](const Row &row) -> Cell { return {std::to_string(row.stream.queued)}; }},
    {"silent", 6, 4,
     [](const Row &row) -> Cell {
         return {SecondsText(row.silence), row.silence >= kSilenceSeconds ? Paint::kYellow : Paint::kNone};
     }},
};

class LiveView : public Watcher {
public:
    ~LiveView() override { KeepLines(); }

    void Show(const Observation &observation) override {
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
        DrawLines({});
        return {};
    }

private:
    std::string Painted(const std::string &text, Paint paint) const {
        static constexpr const char *kCodes[] = {"", "\033[2m", "\033[33m", "\033[1;31m"};
        if (!colors_ || paint == Paint::kNone) return text;
        return kCodes[static_cast<int>(paint)] + text + "\033[0m";
    }

    // To the right of its column.
    std::string Placed(const Cell &cell, std::size_t width) const {
        const std::string space(cell.text.size() < width ? width - cell.text.size() : 0, ' ');
        return " " + space + Painted(cell.text, cell.paint);
    }

    void Redraw(const Observation &observation) {
        constexpr std::size_t kNarrow = 80;
        if (observation.now - shown_ < kRedraw) return;
        shown_ = observation.now;
        const std::size_t width = TerminalColumns();
        const std::size_t nameWidth = width < kNarrow ? 10 : 16;
        const std::vector<const Column *> columns = ColumnsIn<Column>(width - std::min(width, nameWidth), kColumns);
        std::vector<std::string> lines;
        std::string head = ElapsedText(observation.elapsed);
        head.resize(nameWidth, ' ');
        for (const Column *column : columns) head += Placed({column->title}, column->width);
        if (!observation.streams.empty()) lines.push_back(Painted(head, Paint::kFaint));
        for (const StreamObservation &stream : observation.streams) {
            const Row row{stream, lately_[stream.stream.number].Get(), SilenceSeconds(stream, observation)};
            std::string line = std::to_string(stream.stream.number) + "  " + Printable(stream.stream.codec);
            line.resize(nameWidth, ' ');
            for (const Column *column : columns) line += Placed(column->cell(row), column->width);
            lines.push_back(line);
        }
        if (!observation.IsPlaying()) lines.push_back(Painted(Printable(observation.state), Paint::kYellow));
        DrawLines(lines);
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
                      JitterText(statistics.JitterMs()).c_str(), stream.queued,
                      SilenceSeconds(stream, observation));
        PrintNotice(text + (observation.IsPlaying() ? "" : ", " + observation.state));
    }

    const bool redraws_ = MayRedraw();
    const bool colors_ = MayUseColor();
    std::map<int32_t, Lately> lately_; // by the stream's number
    Clock::time_point shown_;
};

} // namespace

std::unique_ptr<Watcher> MakeLiveView() { return std::make_unique<LiveView>(); }

} // namespace tool
