#include "views/report.h"

#include "base/console.h"
#include "base/text.h"
#include "reception/interval.h"
#include "views/columns.h"

#include <algorithm>

namespace tool {
namespace {

constexpr std::size_t kNameWidth = 16; // of number and codec

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

std::string NameCell(const std::string &number, const std::string &codec) {
    std::string cell = number + std::string(3 - std::min<std::size_t>(2, number.size()), ' ') + codec.substr(0, 64);
    cell.resize(std::max(cell.size(), kNameWidth), ' ');
    return cell;
}

std::string OutageLine(const StreamObservation &stream) {
    const Statistics &statistics = stream.statistics;
    if (statistics.Outages() == 0) return "";
    return NameOf(stream.stream) + ": " + TimeText(statistics.WithoutMedia()) + " without media, in " +
           std::to_string(statistics.Outages()) + (statistics.Outages() == 1 ? " stretch" : " stretches") +
           " of at most " + TimeText(statistics.LongestGap()) + "\n";
}

} // namespace

std::string ReportTable(const Observation &observation, std::size_t width) {
    const std::vector<const Column *> columns = ColumnsIn<Column>(width - std::min(width, kNameWidth), kColumns);
    std::string table = NameCell("#", "codec");
    for (const Column *column : columns) table += Placed(column->title, column->width);
    table += "\n";
    for (const auto &[stream, statistics, queued] : observation.streams) {
        table += NameCell(std::to_string(stream.number), Printable(stream.codec));
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
