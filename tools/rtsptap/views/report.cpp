#include "views/report.h"

#include "base/console.h"
#include "reception/interval.h"

#include <cinttypes>
#include <cstdio>

namespace tool {

// 80 columns, as long as the counts have the digits for it.
std::string ReportTable(const std::vector<StreamObservation> &streams) {
    char line[512];
    std::snprintf(line, sizeof line, "%-2s %-13s %8s %11s %12s %6s %6s %6s %8s\n", "#", "codec", "packets", "bytes",
                  "bit rate", "lost", "loss", "reord.", "jitter");
    std::string table = line;
    for (const auto &[stream, statistics, queued] : streams) {
        std::snprintf(line, sizeof line,
                      "%-2" PRId32 " %-13.64s %8" PRIu64 " %11" PRIu64 " %5.0f kbit/s %6" PRIu64
                      " %5.1f%% %6" PRIu64 " %8s\n",
                      stream.number, Printable(stream.codec).c_str(), statistics.Packets(), statistics.Bytes(),
                      statistics.BitsPerSecond() / 1000, statistics.Lost(), statistics.LossPercent(),
                      statistics.Reordered(), JitterText(statistics.MeanJitterMs()).c_str());
        table += line;
    }
    return table;
}

Outcome JudgeStreams(const std::vector<StreamObservation> &streams) {
    for (const StreamObservation &stream : streams)
        if (stream.statistics.Packets() == 0)
            return {ExitCode::kNoMedia, NameOf(stream.stream) + ": no packet arrived"};
    return {};
}

} // namespace tool
