// Packets that have not come are asked for (generic NACK; RFC 4585, 6.2.1), where the description offers it and the
// client wants it. In the turn of whoever receives: the stream's sockets stay open as long as it has that.
#include "platform/system.h"
#include "platform/text.h"
#include "platform/wire.h"
#include "rtp/media_session.h"
#include "rtp/rtcp/rtcp.h"
#include "rtp/rtcp/true_reports.h"
#include "rtp/statistics.h"
#include "rtp/stream.h"

#include <algorithm>

namespace rtsptap {
namespace {

constexpr std::string_view kFeedback = "rtcp-fb:";

// "rtcp-fb:96 nack" or "rtcp-fb:* nack"; "nack pli" is something else.
bool OffersNack(std::string_view line) {
    if (!line.starts_with(kFeedback)) return false;
    line.remove_prefix(kFeedback.size());
    const std::size_t blank = line.find(' ');
    return blank != line.npos && WithoutBlanks(line.substr(blank)) == "nack";
}

} // namespace

void PrepareAsking(RTSPStreamInfo &stream) {
    if (stream.statistics == nullptr || stream.session->asksAgain == 0) return;
    MissingPackets &missing = stream.statistics->missing;
    for (const SDPField *field = stream.sdpFieldList; field != nullptr; field = field->next) {
        if (field->name[0] != 'a') continue;
        if (OffersNack(field->value)) missing.mayAsk = true;
        if (std::string_view(field->value).starts_with("rtcp-rsize")) missing.inShort = true;
    }
}

namespace {

constexpr uint64_t kPatience = 3;  // later packets, behind which one is missing
constexpr uint64_t kMostBack = 64; // numbers
constexpr std::size_t kMostRuns = 8;
constexpr uint32_t kARequest = 1000; // tokens
constexpr uint32_t kRequestsPerSecond = 20;
constexpr uint32_t kMostTokens = 5 * kARequest;

//  8 |                  SSRC of media source                         |
// 12 |            PID                |             BLP               |  kMostRuns at most
struct Runs {
    struct Run {
        uint16_t first = 0;
        uint16_t following = 0; // bits
    };
    std::array<Run, kMostRuns> runs;
    std::size_t count = 0;

    bool Add(uint16_t number) {
        const auto behind = static_cast<uint16_t>(count > 0 ? number - runs[count - 1].first : 0);
        if (behind > 0 && behind <= 16) {
            runs[count - 1].following |= static_cast<uint16_t>(1 << (behind - 1));
            return true;
        }
        if (count == runs.size()) return false;
        runs[count++] = {number, 0};
        return true;
    }
};

bool TakesToken(MissingPackets &missing) {
    const uint64_t now = MonotonicMs();
    const uint64_t passed = std::min<uint64_t>(now - missing.lastMs, kMostTokens);
    missing.lastMs = now;
    missing.tokens = std::min<uint32_t>(
        missing.tokens + static_cast<uint32_t>(passed) * kARequest / 1000 * kRequestsPerSecond, kMostTokens);
    if (missing.tokens < kARequest) return false;
    missing.tokens -= kARequest;
    return true;
}

void Ask(RTSPStreamInfo &stream, const Runs &asked) {
    const bool inShort = stream.statistics->missing.inShort.load(std::memory_order_relaxed);
    ReportText text;
    if (!inShort) AddEmptyReport(stream, text);
    if (!inShort) AddName(stream, text);
    const std::size_t size = 12 + 4 * asked.count;
    if (text.size + size > text.bytes.size()) return;
    uint8_t *const at = text.bytes.data() + text.size;
    at[0] = 0x80 | 1; // generic NACK
    at[1] = kTransportFeedback;
    wire::PutU16(at + 2, static_cast<uint32_t>(size / 4 - 1));
    wire::PutU32(at + 4, stream.localSsrc.load(std::memory_order_relaxed));
    wire::PutU32(at + 8, static_cast<uint32_t>(stream.statistics->figures.ssrc));
    for (std::size_t i = 0; i < asked.count; ++i) {
        wire::PutU16(at + 12 + 4 * i, asked.runs[i].first);
        wire::PutU16(at + 14 + 4 * i, asked.runs[i].following);
    }
    text.size += size;
    SendText(stream, text);
}

} // namespace

void AskForMissing(RTSPStreamInfo &stream) {
    StreamStatistics &statistics = *stream.statistics;
    MissingPackets &missing = statistics.missing;
    ArrivalFigures &figures = statistics.figures;
    if (!missing.mayAsk.load(std::memory_order_relaxed)) return;
    if (stream.session->dataProto.load(std::memory_order_relaxed) == DATA_PROTO_TCP) return; // none gets lost there
    const uint64_t end = figures.highest > figures.first + kPatience ? figures.highest - kPatience : figures.first;
    // A sender that starts again has numbers of its own.
    if (missing.lookedUpTo > end || missing.lookedUpTo < figures.first) missing.lookedUpTo = figures.first;
    const uint64_t first = std::max(missing.lookedUpTo + 1, end > kMostBack ? end - kMostBack + 1 : 0);
    Runs asked;
    uint64_t numbers = 0;
    for (uint64_t number = first; number <= end; ++number)
        if (!statistics.seen[number % statistics.seen.size()] && asked.Add(static_cast<uint16_t>(number)))
            ++numbers;
    missing.lookedUpTo = std::max(missing.lookedUpTo, end);
    if (numbers == 0 || !TakesToken(missing)) return;
    Ask(stream, asked);
    figures.askedAgain += numbers;
}

} // namespace rtsptap
