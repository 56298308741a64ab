// RTCP packets read part by part, for clients that want more than the first of them: compound ones (RFC 3550, 6.1)
// and those of reduced size (RFC 5506). By whoever handles a stream's RTCP.
#include "platform/wire.h"
#include "rtp/media_session.h"
#include "rtp/rtcp/rtcp.h"
#include "rtp/rtcp/true_reports.h"
#include "rtp/statistics.h"
#include "rtp/stream.h"

#include <algorithm>
#include <cstring>

namespace rtsptap {
namespace {

constexpr std::size_t kHeader = 4; // bytes: version, padding, count; kind; length in words less one
constexpr std::size_t kSenderReportBytes = 28;

// One part, header included. What it claims lies within the datagram.
struct Part {
    std::span<const uint8_t> bytes;
    uint32_t Count() const { return bytes[0] & 0x1F; }
    uint8_t Kind() const { return bytes[1]; }
    // Word `at`, 0 beyond the end.
    uint32_t Word(std::size_t at) const { return wire::ReceivedBytes(bytes).U32(4 * at); }
    std::span<const uint8_t> From(std::size_t at) const { return bytes.subspan(std::min(at, bytes.size())); }
};

// Without its padding, which only the last part may have.
Part WithoutPadding(Part part) {
    const bool isPadded = (part.bytes[0] & 0x20) != 0;
    const std::size_t padding = isPadded ? part.bytes.back() : 0;
    if (padding + kHeader <= part.bytes.size()) part.bytes = part.bytes.first(part.bytes.size() - padding);
    return part;
}

void Tell(const RTSPStreamInfo &stream, RTSPTapReport report) {
    const MediaSession &session = *stream.session;
    if (session.reportCallback == nullptr) return;
    report.recordSize = sizeof report;
    report.streamNumber = stream.number;
    session.reportCallback(session.reportContext, &report);
}

void ReadSenderReport(RTSPStreamInfo &stream, const Part &part) {
    if (part.bytes.size() < kSenderReportBytes) return;
    const ReportFigures figures{.ntp = uint64_t{part.Word(2)} << 32 | part.Word(3),
                                .ssrc = part.Word(1),
                                .rtpTimestamp = part.Word(4),
                                .packets = part.Word(5),
                                .octets = part.Word(6)};
    NoteSenderReport(stream, figures);
    RTSPTapReport report = {};
    report.kind = RTSPTAP_REPORT_SENDER;
    report.ssrc = figures.ssrc;
    report.ntp = figures.ntp;
    report.rtpTimestamp = figures.rtpTimestamp;
    report.packets = figures.packets;
    report.octets = figures.octets;
    Tell(stream, report);
}

// RFC 3550, 6.6: who leaves, and perhaps a counted text.
void ReadGoodbye(const RTSPStreamInfo &stream, const Part &part) {
    const std::span<const uint8_t> text = part.From(kHeader + 4 * part.Count());
    RTSPTapReport report = {};
    report.kind = RTSPTAP_REPORT_GOODBYE;
    if (!text.empty() && text[0] < text.size()) {
        report.data = text.data() + 1;
        report.size = text[0];
    }
    for (uint32_t i = 1; i <= part.Count() && kHeader * (i + 1) <= part.bytes.size(); ++i) {
        report.ssrc = part.Word(i);
        Tell(stream, report);
    }
}

// RFC 3550, 6.7: who, a name of four characters, and what they agreed on.
void ReadApplication(const RTSPStreamInfo &stream, const Part &part) {
    constexpr std::size_t kName = 8;
    constexpr std::size_t kData = 12;
    if (part.bytes.size() < kData) return;
    RTSPTapReport report = {};
    report.kind = RTSPTAP_REPORT_APPLICATION;
    report.ssrc = part.Word(1);
    report.subtype = static_cast<int32_t>(part.Count());
    std::memcpy(report.name, part.bytes.data() + kName, kData - kName);
    report.data = part.From(kData).data();
    report.size = static_cast<uint32_t>(part.From(kData).size());
    Tell(stream, report);
}

void ReadPart(RTSPStreamInfo &stream, const Part &part) {
    switch (part.Kind()) {
    case kSenderReport:
        NoteMember(stream, part.Word(1));
        ReadSenderReport(stream, part);
        break;
    case kReceiverReport:
        NoteMember(stream, part.Word(1));
        break;
    case kBye:
        ReadGoodbye(stream, part);
        break;
    case kApplication:
        ReadApplication(stream, part);
        break;
    default:
        break;
    }
}

} // namespace

bool ReadsParts(const RTSPStreamInfo &stream) {
    return stream.statistics != nullptr || (stream.session != nullptr && stream.session->reportCallback != nullptr);
}

void ReadParts(RTSPStreamInfo &stream, std::span<const uint8_t> packet) {
    constexpr uint8_t kVersion = 2;
    NoteReceivedReport(stream, packet.size());
    while (packet.size() >= kHeader && packet[0] >> 6 == kVersion) {
        const std::size_t size = kHeader * (std::size_t{1} + wire::U16(packet.data() + 2));
        if (size > packet.size()) return;
        ReadPart(stream, WithoutPadding({packet.first(size)}));
        packet = packet.subspan(size);
    }
}

} // namespace rtsptap
