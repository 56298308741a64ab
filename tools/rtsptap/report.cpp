#include "report.h"

#include <cinttypes>

namespace tool {

bool PrintReport(FILE *out, const std::vector<StreamReport> &report) {
    std::fprintf(out, "%-6s  %-13s  %9s  %11s  %13s  %6s  %9s  %9s  %8s  %s\n", "stream", "codec", "packets",
                 "bytes", "bit rate", "lost", "reordered", "first seq", "last seq", "SSRC");
    for (const auto &[stream, statistics] : report)
        std::fprintf(out,
                     "%-6" PRId32 "  %-13s  %9" PRIu64 "  %11" PRIu64 "  %6.0f kbit/s  %6" PRIu64 "  %9" PRIu64
                     "  %9u  %8u  0x%08" PRIx32 "\n",
                     stream.number, stream.codec.c_str(), statistics.Packets(), statistics.Bytes(),
                     statistics.BitsPerSecond() / 1000, statistics.Lost(), statistics.Reordered(),
                     unsigned{statistics.FirstSequence()}, unsigned{statistics.LastSequence()}, statistics.Ssrc());
    return std::fflush(out) == 0 && std::ferror(out) == 0;
}

Outcome JudgeReport(const std::vector<StreamReport> &report) {
    for (const auto &[stream, statistics] : report)
        if (statistics.Packets() == 0)
            return {ExitCode::kNoMedia,
                    "stream " + std::to_string(stream.number) + " (" + stream.codec + "): no packet arrived"};
    return {};
}

} // namespace tool
