#include "views/report.h"

#include "base/console.h"
#include "base/text.h"
#include "reception/interval.h"
#include "views/columns.h"

#include <algorithm>

namespace tool {
namespace {

constexpr std::size_t kUsualWidth = 16; // of number and codec

struct Column {
    const char *title;
    std::size_t width;
    int rank;
    std::string (*cell)(const StreamStatistics &statistics);
};

using Statistics = StreamStatistics;

// 80 columns together, as long as the counts have the digits for it.
constexpr Column kColumns[] = {
    {"packets", 8, 3, [](const Statistics &stream) { return std::to_string(stream.Packets()); }},
    {"bytes", 11, 6, [](const Statistics &stream) { return std::to_string(stream.Bytes()); }},
    {"bit rate", 12, 1,
     [](const Statistics &stream) { return Formatted("%5.0f kbit/s", stream.BitsPerSecond() / 1000); }},
    {"lost", 6, 4, [](const Statistics &stream) { return std::to_string(stream.Lost()); }},
    {"loss", 6, 2, [](const Statistics &stream) { return Formatted("%.1f%%", stream.LossPercent()); }},
    {"reord.", 6, 7, [](const Statistics &stream) { return std::to_string(stream.Reordered()); }},
    {"jitter", 8, 5, [](const Statistics &stream) { return JitterText(stream.MeanJitterMs()); }},
};

std::string Placed(const std::string &text, std::size_t width) {
    return " " + std::string(width - std::min(width, text.size()), ' ') + text;
}

// Number and codec, whole where there is room.
std::string NameCell(const std::string &number, const std::string &codec, std::size_t width) {
    std::string cell = number + std::string(number.size() < 2 ? 2 : 1, ' ') + codec.substr(0, 64);
    if (cell.size() < width || width < kUsualWidth) cell.resize(width, ' ');
    return cell;
}

std::string OutageLine(const StreamObservation &stream) {
    const Statistics &statistics = stream.statistics;
    if (statistics.Outages() == 0) return "";
    const std::string parts = std::to_string(statistics.Outages()) + " stretches, the longest ";
    return NameOf(stream.stream) + ": " + TimeText(statistics.WithoutMedia()) + " without media" +
           (statistics.Outages() == 1 ? "" : ", in " + parts + TimeText(statistics.LongestGap())) + "\n";
}

} // namespace

std::string ReportTable(const Observation &observation, std::size_t width) {
    const std::size_t nameWidth = width < 80 ? 10 : kUsualWidth;
    const std::vector<const Column *> columns = ColumnsIn<Column>(width - std::min(width, nameWidth), kColumns);
    std::string table = NameCell("#", "codec", nameWidth);
    for (const Column *column : columns) table += Placed(column->title, column->width);
    table += "\n";
    for (const auto &[stream, statistics, queued] : observation.streams) {
        table += NameCell(std::to_string(stream.number), Printable(stream.codec), nameWidth);
        for (const Column *column : columns) table += Placed(column->cell(statistics), column->width);
        table += "\n";
    }
    for (const StreamObservation &stream : observation.streams) table += OutageLine(stream);
    if (observation.reconnects > 0)
        table += "reconnected " + std::to_string(observation.reconnects) +
                 (observation.reconnects == 1 ? " time\n" : " times\n");
    return table;
}

Outcome JudgeStreams(const std::vector<StreamObservation> &streams) {
    for (const StreamObservation &stream : streams)
        if (stream.statistics.Packets() == 0)
            return {ExitCode::kNoMedia, NameOf(stream.stream) + ": no packet arrived"};
    return {};
}

} // namespace tool
