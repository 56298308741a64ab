#include "rtp/rtcp/true_reports.h"

#include "platform/system.h"
#include "platform/wire.h"
#include "rtp/media_session.h"
#include "rtp/rtcp/rtcp.h"
#include "rtp/service_thread.h"
#include "rtp/serving.h"
#include "rtp/statistics.h"
#include "rtp/stream.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <unistd.h>
#include <utility>

namespace rtsptap {

// ---- intervals ----

namespace {

constexpr double kLeastSeconds = 5;
constexpr double kReceiversShare = 0.75;        // of the bandwidth, where senders are few (RFC 3550, 6.2)
constexpr double kReportsShare = 0.05;          // of the session's
constexpr double kCompensation = 2.71828 - 1.5; // for timer reconsideration
constexpr std::size_t kLowerHeaders = 28;       // bytes of UDP and IP

} // namespace

uint64_t ReportIntervalMs(const ReportLoad &load, double random) {
    constexpr double kFewSenders = 4; // members for each sender
    double seconds = load.isFirst ? kLeastSeconds / 2 : kLeastSeconds;
    const bool fewSend = load.members >= kFewSenders; // and one does
    const double share = fewSend ? load.bytesPerSecond * kReceiversShare : load.bytesPerSecond;
    const double speakers = fewSend ? load.members - 1 : load.members;
    if (share > 0) seconds = std::max(seconds, load.averageBytes * speakers / share);
    return static_cast<uint64_t>(seconds * (random + 0.5) / kCompensation * 1000);
}

// ---- who else is there ----

namespace {

constexpr std::size_t kBits = 1024;

// How many there are, by how many of the bits they have left alone.
double CountMembers(const ReportState &state) {
    std::size_t set = 0;
    for (const auto &word : state.members)
        set += static_cast<std::size_t>(std::popcount(word.load(std::memory_order_relaxed)));
    const double free = static_cast<double>(std::max<std::size_t>(kBits - set, 1));
    return std::max(2.0, 1 + std::round(kBits * std::log(kBits / free)));
}

void AverageIn(ReportState &state, std::size_t bytes) {
    const auto now = static_cast<uint32_t>(bytes + kLowerHeaders);
    const uint32_t before = state.averageBytes.load(std::memory_order_relaxed);
    state.averageBytes.store(before == 0 ? now : (now + 15 * before) / 16, std::memory_order_relaxed);
}

} // namespace

void NoteMember(RTSPStreamInfo &stream, uint32_t ssrc) {
    if (stream.statistics == nullptr) return;
    const uint32_t bit = ssrc * 2654435761U >> 22;
    stream.statistics->reports.members[bit / 64].fetch_or(uint64_t{1} << bit % 64, std::memory_order_relaxed);
}

void NoteReceivedReport(RTSPStreamInfo &stream, std::size_t bytes) {
    if (stream.statistics != nullptr) AverageIn(stream.statistics->reports, bytes);
}

// ---- writing ----

namespace {

enum : uint8_t { kVersion = 0x80, kPadding = 0 };

uint8_t *Append(ReportText &text, std::size_t size) {
    if (text.size + size > text.bytes.size()) return nullptr;
    return text.bytes.data() + std::exchange(text.size, text.size + size);
}

uint8_t *BeginPart(const RTSPStreamInfo &stream, ReportText &text, uint32_t count, RtcpType kind,
                   std::size_t size) {
    uint8_t *const at = Append(text, size);
    if (at == nullptr) return nullptr;
    at[0] = static_cast<uint8_t>(kVersion | count);
    at[1] = kind;
    wire::PutU16(at + 2, static_cast<uint32_t>(size / 4 - 1));
    wire::PutU32(at + 4, stream.localSsrc.load(std::memory_order_relaxed));
    return at;
}

// RFC 3550, A.3: of those expected since the last report.
uint32_t FractionLost(ReportState &state, const ArrivalFigures &figures) {
    if (state.ssrc != figures.ssrc) state.expectedBefore = state.receivedBefore = 0;
    state.ssrc = figures.ssrc;
    const uint64_t all = figures.highest - figures.first + 1;
    const auto expected = static_cast<int64_t>(all - std::exchange(state.expectedBefore, all));
    const auto received =
        static_cast<int64_t>(figures.received - std::exchange(state.receivedBefore, figures.received));
    if (expected <= 0 || received >= expected) return 0;
    return static_cast<uint32_t>(std::min<int64_t>((expected - received) * 256 / expected, UINT8_MAX));
}

uint32_t CumulativeLost(const ArrivalFigures &figures) {
    constexpr int64_t kMost = 0x7FFFFF;
    const auto lost = static_cast<int64_t>(figures.highest - figures.first + 1 - figures.received);
    return static_cast<uint32_t>(std::clamp(lost, -kMost - 1, kMost)) & 0xFFFFFF;
}

//  8 |                     SSRC of the sender                        |
// 12 | fraction lost |       cumulative number of packets lost       |
// 16 |           extended highest sequence number received           |
// 20 |                      interarrival jitter                      |
// 24 |                    last SR, middle 32 bits                    |
// 28 |             delay since last SR, in 1/65536 seconds           |
void WriteBlock(ReportState &state, const ArrivalFigures &figures, const ReportFigures &last, uint8_t *at) {
    wire::PutU32(at, static_cast<uint32_t>(figures.ssrc));
    wire::PutU32(at + 4, FractionLost(state, figures) << 24 | CumulativeLost(figures));
    wire::PutU32(at + 8, static_cast<uint32_t>(figures.highest - kFirstCycle));
    wire::PutU32(at + 12, static_cast<uint32_t>(figures.jitter >> 4));
    if (last.count == 0 || last.ssrc != figures.ssrc) return;
    const uint64_t delayMs = MonotonicMs() - last.arrivedMs;
    wire::PutU32(at + 16, static_cast<uint32_t>(last.ntp >> 16));
    wire::PutU32(at + 20, static_cast<uint32_t>(delayMs * 65536 / 1000));
}

} // namespace

void AddEmptyReport(const RTSPStreamInfo &stream, ReportText &text) {
    BeginPart(stream, text, 0, kReceiverReport, 8);
}

void AddReport(RTSPStreamInfo &stream, ReportText &text) {
    constexpr std::size_t kOneBlock = 32;
    ReportState &state = stream.statistics->reports;
    const ArrivalFigures figures = stream.statistics->published.Get();
    if (std::exchange(state.packetsBefore, figures.packets) == figures.packets) return AddEmptyReport(stream, text);
    uint8_t *const at = BeginPart(stream, text, 1, kReceiverReport, kOneBlock);
    if (at != nullptr) WriteBlock(state, figures, stream.statistics->publishedReport.Get(), at + 8);
}

// RFC 3550, 6.5.1: the same name for all streams of a session.
void AddName(const RTSPStreamInfo &stream, ReportText &text) {
    constexpr std::size_t kLongestName = 27;
    constexpr uint8_t kCanonicalName = 1;
    char name[kLongestName + 1] = {};
    if (gethostname(name, kLongestName) != 0 || name[0] == '\0') std::strcpy(name, "rtsptap");
    const std::size_t length = std::strlen(name);
    // A zero byte ends the item list, and more of them the word.
    uint8_t *const at = BeginPart(stream, text, 1, kSourceDescription, (8 + 2 + length) / 4 * 4 + 4);
    if (at == nullptr) return;
    at[8] = kCanonicalName;
    at[9] = static_cast<uint8_t>(length);
    std::memcpy(at + 10, name, length);
}

void SendText(RTSPStreamInfo &stream, const ReportText &text) {
    const auto size = static_cast<int32_t>(text.size);
    if (stream.session->dataProto.load(std::memory_order_relaxed) != DATA_PROTO_TCP)
        SendRtcpPacket(&stream, text.bytes.data(), size);
    else
        SendRtcpPacketTCP(&stream, text.bytes.data(), size);
}

// ---- sending ----

bool ReportsTruly(const RTSPStreamInfo &stream) {
    return stream.statistics != nullptr && stream.session->trueReports != 0;
}

namespace {

constexpr int kIdleMs = 60000;

double RandomPart(ReportState &state, const RTSPStreamInfo &stream) {
    if (state.seed == 0) state.seed = ChooseSsrc(stream);
    unsigned seed = state.seed;
    const double part = static_cast<double>(rand_r(&seed)) / RAND_MAX;
    state.seed = seed;
    return part;
}

uint64_t IntervalMs(const RTSPStreamInfo &stream) {
    constexpr double kBytesPerKbit = 125;
    constexpr uint32_t kUsualBytes = 100;
    ReportState &state = stream.statistics->reports;
    const uint32_t average = state.averageBytes.load(std::memory_order_relaxed);
    const ReportLoad load{.members = CountMembers(state),
                          .bytesPerSecond =
                              std::max(stream.description.bandwidth, 0) * kBytesPerKbit * kReportsShare,
                          .averageBytes = static_cast<double>(average != 0 ? average : kUsualBytes),
                          .isFirst = !state.hasSent.load(std::memory_order_relaxed)};
    return ReportIntervalMs(load, RandomPart(state, stream));
}

// Ours must be nobody else's (RFC 3550, 8.2).
void AvoidCollision(RTSPStreamInfo &stream) {
    while (stream.localSsrc == 0 || stream.localSsrc == stream.remoteSsrc) stream.localSsrc = ChooseSsrc(stream);
}

void SendReport(RTSPStreamInfo &stream, ReportState &state) {
    ReportText text;
    AvoidCollision(stream);
    AddReport(stream, text);
    AddName(stream, text);
    state.hasSent = true; // before anybody can hear it and answer with what ends the session
    SendText(stream, text);
    AverageIn(state, text.size);
}

} // namespace

int ReportWaitMs(RTSPStreamInfo &stream) {
    ReportState &state = stream.statistics->reports;
    if (state.hasLeft) return kIdleMs;
    const uint64_t now = MonotonicMs();
    if (state.dueMs == 0) {
        state.lastMs = now;
        state.dueMs = now + IntervalMs(stream);
    }
    return state.dueMs > now ? static_cast<int>(std::min<uint64_t>(state.dueMs - now, kIdleMs)) : 0;
}

// RFC 3550, 6.3.6: when it is due the interval is thought over, for there may be more members by now.
void SendDueReport(RTSPStreamInfo &stream) {
    ReportState &state = stream.statistics->reports;
    if (ReportWaitMs(stream) > 0) return;
    const uint64_t now = MonotonicMs();
    state.dueMs = state.lastMs + IntervalMs(stream);
    if (state.dueMs > now) return;
    SendReport(stream, state);
    state.lastMs = now;
    state.dueMs = now + IntervalMs(stream);
    for (auto &word : state.members) word.store(0, std::memory_order_relaxed); // they will be heard again
}

// RFC 3550, 6.3.7: who has said nothing leaves without a word.
void SayGoodbye(MediaSession &session) {
    if (session.trueReports == 0) return;
    for (RTSPStreamInfo *stream = session.streamList; stream != nullptr; stream = stream->next) {
        if (stream->statistics == nullptr) continue;
        ReportState &state = stream->statistics->reports;
        const bool canSend =
            session.dataProto == DATA_PROTO_TCP ? session.connection.socket >= 0 : stream->rtcpSocket >= 0;
        if (!state.hasSent || state.hasLeft.exchange(true) || !canSend) continue;
        ReportText text;
        AddEmptyReport(*stream, text);
        AddName(*stream, text);
        BeginPart(*stream, text, 1, kBye, 8);
        SendText(*stream, text);
    }
}

// ---- the service over TCP ----

namespace {

bool Open(StreamThread & /*thread*/) { return true; }
// It keeps no stream going that is paused.
bool IsActive(RTSPStreamInfo & /*stream*/) { return false; }
void Close(StreamThread & /*thread*/) {}
int NoSocket(const RTSPStreamInfo & /*stream*/) { return -1; }

template <typename Step> void ForEachReporting(const RTSPStreamInfo &first, const Step &step) {
    RTSPStreamInfo *stream = first.session->streamList.load(std::memory_order_acquire);
    for (; stream != nullptr; stream = stream->next.load(std::memory_order_acquire))
        if (ReportsTruly(*stream) && stream->receiving && stream->streamState == kStreamPlaying) step(*stream);
}

int WaitMs(RTSPStreamInfo &first) {
    int wait = kIdleMs;
    ForEachReporting(first, [&wait](RTSPStreamInfo &stream) { wait = std::min(wait, ReportWaitMs(stream)); });
    return wait;
}

// Without the service beside it, which reads the connection, nothing is left to do.
Served Serve(StreamThread &thread, const Readiness & /*readiness*/) {
    if (thread.over[0]) return Served::kEnded;
    ForEachReporting(*thread.stream, SendDueReport);
    return Served::kNothingLeft;
}

} // namespace

constinit const Service kReportService{
    .threadName = "RTCPDataReceiveThread",
    .open = Open,
    .isActive = IsActive,
    .serve = Serve,
    .socket = NoSocket,
    .waitMs = WaitMs,
    .dueMs = WaitMs,
    .close = Close,
};

} // namespace rtsptap
