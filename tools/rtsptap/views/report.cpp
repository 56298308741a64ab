#include "views/report.h"

#include "cli/console.h"

#include <cinttypes>

namespace tool {
namespace {

std::string JitterText(const StreamStatistics &statistics) {
    const std::optional<double> jitter = statistics.MeanJitterMs();
    if (!jitter || statistics.Packets() == 0) return "-";
    char text[48];
    std::snprintf(text, sizeof text, "%.1f ms", *jitter);
    return text;
}

} // namespace

// 80 columns, as long as the counts have the digits for it.
bool PrintReport(FILE *out, const std::vector<StreamReport> &report) {
    std::fprintf(out, "%-2s %-13s %8s %11s %12s %6s %6s %6s %8s\n", "#", "codec", "packets", "bytes", "bit rate",
                 "lost", "loss", "reord.", "jitter");
    for (const auto &[stream, statistics] : report)
        std::fprintf(out,
                     "%-2" PRId32 " %-13s %8" PRIu64 " %11" PRIu64 " %5.0f kbit/s %6" PRIu64 " %5.1f%% %6" PRIu64
                     " %8s\n",
                     stream.number, Printable(stream.codec).c_str(), statistics.Packets(), statistics.Bytes(),
                     statistics.BitsPerSecond() / 1000, statistics.Lost(), statistics.LossPercent(),
                     statistics.Reordered(), JitterText(statistics).c_str());
    return std::fflush(out) == 0 && std::ferror(out) == 0;
}

Outcome JudgeReport(const std::vector<StreamReport> &report) {
    for (const auto &[stream, statistics] : report)
        if (statistics.Packets() == 0) return {ExitCode::kNoMedia, NameOf(stream) + ": no packet arrived"};
    return {};
}

} // namespace tool
