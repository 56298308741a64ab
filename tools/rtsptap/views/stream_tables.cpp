// A line for each stream: redrawn while the reception goes on, and as a table when it is over. Columns are left out
// where the terminal is too narrow for all of them.
#include "base/console.h"
#include "base/text.h"
#include "base/writing.h"
#include "reception/observation.h"
#include "views/watchers.h"

#include <algorithm>
#include <cinttypes>
#include <deque>
#include <map>
#include <span>

namespace tool {
namespace {

constexpr auto kRedraw = std::chrono::milliseconds(250);
constexpr auto kPlainLines = std::chrono::seconds(10);
constexpr auto kRateWindow = std::chrono::seconds(2); // rates are averages over so long
constexpr double kSilenceSeconds = 2;
constexpr std::size_t kUsualNameWidth = 16; // of number and codec

enum class Paint { kNone, kFaint, kYellow, kRed };

// What a line is made of.
struct Row {
    const StreamObservation &stream;
    Interval lately;
    double silence = 0;
};

struct Cell {
    std::string text;
    Paint paint = Paint::kNone;
};

struct Column {
    const char *title;
    std::size_t width;
    int rank; // the highest are left out first
    Cell (*cell)(const Row &row);
};

// Up to seven characters.
std::string CountText(uint64_t count) {
    if (count < 10000000) return std::to_string(count);
    return Formatted(count < 1000000000 ? "%.1fM" : "%.0fM", static_cast<double>(count) / 1e6);
}

std::string QueueText(const StreamObservation &stream) { return std::to_string(stream.statistics.Queued()); }

std::string LossText(const Row &row) { return Formatted("%.1f%%", row.stream.statistics.LossPercent()); }

Paint LossPaint(const Row &row) { return row.lately.lost > 0 ? Paint::kRed : Paint::kNone; }

constexpr Column kLiveColumns[] = {
    {"rate", 11, 1, [](const Row &row) { return Cell{RateText(row.lately.bitsPerSecond)}; }},
    {"packets", 7, 6, [](const Row &row) { return Cell{CountText(row.stream.statistics.Packets())}; }},
    {"lost", 6, 5,
     [](const Row &row) {
         return Cell{CountText(row.stream.statistics.Lost()), LossPaint(row)};
     }},
    {"loss", 6, 2,
     [](const Row &row) {
         return Cell{LossText(row), LossPaint(row)};
     }},
    {"reord.", 6, 7, [](const Row &row) { return Cell{CountText(row.stream.statistics.Reordered())}; }},
    {"jitter", 8, 3, [](const Row &row) { return Cell{JitterText(row.stream.statistics.JitterMs())}; }},
    {"queue", 5, 8, [](const Row &row) { return Cell{QueueText(row.stream)}; }},
    {"silent", 6, 4,
     [](const Row &row) {
         return Cell{Formatted(row.silence < 10 ? "%.1f s" : "%.0f s", row.silence),
                     row.silence >= kSilenceSeconds ? Paint::kYellow : Paint::kNone};
     }},
};

// 80 columns together, as long as the counts have the digits for it.
constexpr Column kFinalColumns[] = {
    {"packets", 8, 3, [](const Row &row) { return Cell{std::to_string(row.stream.statistics.Packets())}; }},
    {"bytes", 11, 6, [](const Row &row) { return Cell{std::to_string(row.stream.statistics.Bytes())}; }},
    {"bit rate", 12, 1,
     [](const Row &row) { return Cell{Formatted("%5.0f kbit/s", row.stream.statistics.BitsPerSecond() / 1000)}; }},
    {"lost", 6, 4, [](const Row &row) { return Cell{std::to_string(row.stream.statistics.Lost())}; }},
    {"loss", 6, 2, [](const Row &row) { return Cell{LossText(row)}; }},
    {"reord.", 6, 7, [](const Row &row) { return Cell{std::to_string(row.stream.statistics.Reordered())}; }},
    {"jitter", 8, 5, [](const Row &row) { return Cell{JitterText(row.stream.statistics.MeanJitterMs())}; }},
};

// The columns that there is room for beside the name, each with a space before it.
struct Layout {
    std::size_t nameWidth;
    std::vector<const Column *> columns;

    Layout(std::size_t width, std::span<const Column> all) : nameWidth(width < 80 ? 10 : kUsualNameWidth) {
        const std::size_t room = width - std::min(width, nameWidth);
        for (const Column &column : all) {
            std::size_t needed = 0; // by those that matter as much
            for (const Column &other : all)
                if (other.rank <= column.rank) needed += 1 + other.width;
            if (needed <= room) columns.push_back(&column);
        }
    }
};

std::string Painted(const std::string &text, Paint paint) {
    static constexpr const char *kCodes[] = {"", "\033[2m", "\033[33m", "\033[1;31m"};
    if (paint == Paint::kNone || !MayUseColor()) return text;
    return kCodes[static_cast<int>(paint)] + text + "\033[0m";
}

// To the right of its column.
std::string Placed(const std::string &text, std::size_t width) {
    return " " + std::string(width - std::min(width, text.size()), ' ') + text;
}

std::string HeadLine(std::string name, const Layout &layout) {
    name.resize(layout.nameWidth, ' ');
    for (const Column *column : layout.columns) name += Placed(column->title, column->width);
    return name;
}

// Number and codec, whole where there is room, or cut.
std::string RowLine(const Row &row, const Layout &layout, bool cuts, bool paints) {
    const std::string number = std::to_string(row.stream.stream.number);
    std::string line = number + std::string(number.size() < 2 ? 2 : 1, ' ');
    line += Printable(row.stream.stream.codec).substr(0, 64);
    if (cuts || line.size() < layout.nameWidth || layout.nameWidth < kUsualNameWidth)
        line.resize(layout.nameWidth, ' ');
    for (const Column *column : layout.columns) {
        const Cell cell = column->cell(row);
        line += Painted(Placed(cell.text, column->width), paints ? cell.paint : Paint::kNone);
    }
    return line;
}

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

class LiveView : public Watcher {
public:
    ~LiveView() override { KeepLines(); }

    void Show(const Observation &observation) override {
        for (const StreamObservation &stream : observation.streams)
            lately_[stream.stream.number].Add(CountsOf(stream.statistics, observation.now));
        if (!redraws_ && shown_ == Clock::time_point()) shown_ = observation.now;
        if (observation.now - shown_ < (redraws_ ? Clock::duration(kRedraw) : kPlainLines)) return;
        shown_ = observation.now;
        if (redraws_) return Redraw(observation);
        for (const StreamObservation &stream : observation.streams) PrintPlain(stream, observation);
    }

    // The table of what arrived follows: the lines are of no more use.
    Outcome Finish(const Observation &) override {
        DrawLines({});
        return {};
    }

private:
    Row RowOf(const StreamObservation &stream, const Observation &observation) {
        return {stream, lately_[stream.stream.number].Get(), SilenceSeconds(stream, observation)};
    }

    void Redraw(const Observation &observation) {
        const Layout layout(TerminalColumns(), kLiveColumns);
        std::vector<std::string> lines;
        if (!observation.streams.empty())
            lines.push_back(Painted(HeadLine(ElapsedText(observation.elapsed), layout), Paint::kFaint));
        for (const StreamObservation &stream : observation.streams)
            lines.push_back(RowLine(RowOf(stream, observation), layout, true, true));
        if (!observation.IsPlaying()) lines.push_back(Painted(Printable(observation.state), Paint::kYellow));
        DrawLines(lines);
    }

    void PrintPlain(const StreamObservation &stream, const Observation &observation) {
        const StreamStatistics &statistics = stream.statistics;
        const Row row = RowOf(stream, observation);
        const std::string text =
            Formatted("%s %s: %s, %" PRIu64 " packets, %" PRIu64 " lost (%.2f %%), %" PRIu64
                      " reordered, jitter %s, queue %s, last packet %.1f s ago",
                      ElapsedText(observation.elapsed).c_str(), NameOf(stream.stream).c_str(),
                      RateText(row.lately.bitsPerSecond).c_str(), statistics.Packets(), statistics.Lost(),
                      statistics.LossPercent(), statistics.Reordered(), JitterText(statistics.JitterMs()).c_str(),
                      QueueText(stream).c_str(), row.silence);
        PrintNotice(text + (observation.IsPlaying() ? "" : ", " + observation.state));
    }

    const bool redraws_ = MayRedraw();
    std::map<int32_t, Lately> lately_; // by the stream's number
    Clock::time_point shown_;
};

std::string OutageLine(const StreamObservation &stream) {
    const StreamStatistics &statistics = stream.statistics;
    if (statistics.Outages() == 0) return "";
    const std::string parts = std::to_string(statistics.Outages()) + " stretches, the longest ";
    return NameOf(stream.stream) + ": " + TimeText(statistics.WithoutMedia()) + " without media" +
           (statistics.Outages() == 1 ? "" : ", in " + parts + TimeText(statistics.LongestGap())) + "\n";
}

// Below the streams what was without media, and reconnections.
std::string TableOf(const Observation &observation, std::size_t width) {
    const Layout layout(width, kFinalColumns);
    std::string table = HeadLine("#  codec", layout) + "\n";
    for (const StreamObservation &stream : observation.streams)
        table += RowLine({stream, {}}, layout, false, false) + "\n";
    for (const StreamObservation &stream : observation.streams) table += OutageLine(stream);
    if (observation.reconnects > 0)
        table += "reconnected " + std::to_string(observation.reconnects) +
                 (observation.reconnects == 1 ? " time\n" : " times\n");
    return table;
}

class FinalTable : public Watcher {
public:
    explicit FinalTable(FILE *out) : out_(out) {}

    void Show(const Observation &) override {}

    Outcome Finish(const Observation &observation) override {
        if (observation.streams.empty()) return {};
        const char *name = out_ == stderr ? "standard error" : kStandardOutput;
        if (out_ != nullptr)
            if (Outcome failed = WriteText(out_, TableOf(observation, ColumnsOf(out_)), name); !failed.IsOk())
                return failed;
        return JudgeStreams(observation.streams);
    }

private:
    FILE *const out_;
};

} // namespace

std::unique_ptr<Watcher> MakeLiveView() { return std::make_unique<LiveView>(); }

std::unique_ptr<Watcher> MakeFinalTable(FILE *out) { return std::make_unique<FinalTable>(out); }

Outcome JudgeStreams(const std::vector<StreamObservation> &streams) {
    for (const StreamObservation &stream : streams)
        if (stream.statistics.Packets() == 0 && !MayBeSilent(stream.stream))
            return {ExitCode::kNoMedia, NameOf(stream.stream) + ": no packet arrived"};
    return {};
}

} // namespace tool
