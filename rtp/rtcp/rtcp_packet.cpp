#include "rtp/rtcp/rtcp.h"

#include "platform/printers.h"
#include "platform/wire.h"
#include "rtp/media_session.h"
#include "rtp/rtcp/goodbye.h"
#include "rtp/rtcp/true_reports.h"
#include "rtp/rtp_packet.h"
#include "rtp/stream.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <unistd.h>
#include <utility>

namespace rtsptap {

// ---- read ----

namespace {

// RFC 3550, 6.4.1; every kind of packet starts with these first four bytes:
//
//      0                   1                   2                   3
//      0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1
//     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
//   0 |V=2|P|   RC    |   PT=SR=200   |            length             |
//   4 |                        SSRC of sender                         |
//   8 |              NTP timestamp, most significant word             |
//  12 |             NTP timestamp, least significant word             |
//  16 |                         RTP timestamp                         |
//  20 |                     sender's packet count                     |
//  24 |                      sender's octet count                     |
//     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
constexpr int kRtcpVersion = 2;

void KeepSenderReport(RTSPStreamInfo &stream, const wire::ReceivedBytes &bytes) {
    stream.rtcp.senderReport = {.header = bytes.U32(0),
                                .senderSsrc = bytes.U32(4),
                                .ntpMsw = bytes.U32(8),
                                .ntpLsw = bytes.U32(12),
                                .packetCount = bytes.U32(20),
                                .octetCount = bytes.U32(24)};
    stream.srRtpTimestamp.store(bytes.U32(16), std::memory_order_relaxed);
}

// A goodbye stands behind reports in a compound packet, and may be another receiver's (RFC 3550, 6.6).
bool IsGoodbye(const wire::ReceivedBytes &bytes, std::size_t at, std::size_t end, uint32_t sender) {
    if (bytes.U8(at + 1) != kBye) return false;
    const std::size_t count = bytes.U8(at) & 0x1F;
    for (std::size_t i = 0; i < count && at + 8 + 4 * i <= end; ++i)
        if (sender == 0 || bytes.U32(at + 4 + 4 * i) == sender) return true;
    return false;
}

void LookForGoodbye(RTSPStreamInfo &stream, const wire::ReceivedBytes &bytes, std::size_t size) {
    const uint32_t sender = stream.remoteSsrc.load(std::memory_order_relaxed); // 0: none has been heard yet
    for (std::size_t at = 0; at + 4 <= size && bytes.U8(at) >> 6 == kRtcpVersion;) {
        const std::size_t end = at + 4 + std::size_t{4} * bytes.U16(at + 2);
        if (end > size) return;
        if (IsGoodbye(bytes, at, end, sender)) return NoteGoodbye(stream);
        at = end;
    }
}

} // namespace

int32_t ParseRtcpPacket(RTSPStreamInfo *stream, const uint8_t *packet, int32_t size) {
    DebugPrint(kDebugEntry, "\nENTER: ParseRtcpPacket streamInfoPtr = %d\n\tpacketData = %d\n\tpacketSize = %d",
               PrintableHandle(stream), PrintableHandle(packet), size);
    ShowRtcp(*stream, false, packet, size);
    const wire::ReceivedBytes bytes({packet, size > 0 ? static_cast<std::size_t>(size) : 0});
    LookForGoodbye(*stream, bytes, size > 0 ? static_cast<std::size_t>(size) : 0);
    if (ReadsParts(*stream)) ReadParts(*stream, {packet, bytes.Size()});
    if (ReportsTruly(*stream)) { // by the clock, and parts come in any order
        if (bytes.U8(1) == kSenderReport) KeepSenderReport(*stream, bytes);
        return RTSP_FAILURE;
    }
    const int version = bytes.U8(0) >> 6;
    const uint8_t type = bytes.U8(1);
    if (version != kRtcpVersion) {
        RtpRtspErrorPrint("Invalid RTCP Version : %d Found \n", version);
        return RTSP_FAILURE;
    }
    switch (type) {
    case kSenderReport:
        KeepSenderReport(*stream, bytes);
        break;
    case kBye:
        PrintEvent("Received RTCP Bye packet\n");
        break;
    case kReceiverReport:
    case kIgnored:
        break;
    default:
        RtpRtspErrorPrint("Packet type not supported : %d \n", type);
        return RTSP_FAILURE;
    }
    DebugPrint(kDebugEntry, "\tEXIT : \n\tReturning Successfully");
    return RTSP_SUCCESS;
}

void ShowRtcp(const RTSPStreamInfo &stream, bool isSent, const uint8_t *packet, int32_t size) {
    const MediaSession *const session = stream.session;
    if (session == nullptr || session->rtcpCallback == nullptr || size <= 0) return;
    int32_t number = 1;
    for (const RTSPStreamInfo *other = session->streamList; other != nullptr && other != &stream;
         other = other->next)
        ++number;
    session->rtcpCallback(session->rtcpContext, number, isSent ? 1 : 0, packet, static_cast<uint32_t>(size));
}

// ---- written ----

namespace {

//      0                   1                   2                   3
//      0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1
//     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
//   0 |V=2|0|  RC=1   |   PT=RR=201   |           length=7            |
//   4 |                           our SSRC                            |
//   8 |                     SSRC of the sender                        |
//  12 | fraction lost |       cumulative number of packets lost       |
//  16 |           extended highest sequence number received           |
//  20 |                 interarrival jitter, always 0                 |
//  24 |                    last SR, middle 32 bits                    |
//  28 |     delay since last SR: 1, or 0 when none was received       |
//     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
//  32 |V=2|0|  SC=1   |  PT=SDES=202  |            length             |
//  36 |                           our SSRC                            |
//  40 |    CNAME=1    | name length n |  host name, its zero byte, padding ...
//     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
constexpr uint8_t kVersionAndOneItem = 0x81;
constexpr uint8_t kCanonicalName = 1;
constexpr int32_t kReportSize = 32;
constexpr int32_t kSmallestBuffer = 64;
constexpr std::size_t kHostNameArea = 28;

// Wraps are told from two looks: one at a number in the third quarter, a later one at a number in the first.
constexpr uint16_t kFirstQuarterEnd = 16383;
constexpr uint16_t kSecondHalf = 32768;
constexpr uint16_t kLastQuarter = 49152;

uint32_t ExtendedHighestNumber(RTSPStreamInfo &stream) {
    const uint16_t highest = stream.lastSeqNum.load(std::memory_order_relaxed);
    if (stream.rtcp.seqWrapPending == 1 && highest < kFirstQuarterEnd) {
        stream.rtcp.seqWrapPending = 0;
        ++stream.rtcp.seqCycles;
    }
    if (highest < kLastQuarter && highest >= kSecondHalf) stream.rtcp.seqWrapPending = 1;

    uint32_t cycles = stream.rtcp.seqCycles;
    if (stream.rtcp.seqWrapPending == 0 && highest > kLastQuarter) {
        // A number from before the wrap that was counted last; before any wrap, one is expected.
        if (cycles == 0)
            stream.rtcp.seqWrapPending = 1;
        else
            --cycles;
    }
    return cycles << 16 | highest;
}

// Kept: the loss of the interval is set against all packets expected since the first one.
uint8_t FractionLost(RTSPStreamInfo &stream, uint32_t extendedHighest) {
    const int64_t base = stream.baseSeqNum.load(std::memory_order_relaxed);
    const int64_t expected = std::max<int64_t>(extendedHighest - base, 1);
    const uint32_t lost = stream.cumulativeLost.load(std::memory_order_relaxed);
    const int64_t lostNow = std::max<int64_t>(static_cast<int32_t>(lost - stream.rtcp.prevCumulativeLost), 0);
    stream.rtcp.prevCumulativeLost = lost;
    return static_cast<uint8_t>(lostNow * 256 / expected);
}

// What was counted and heard of a sender is nothing of the next one's.
void StartAnewForNewSender(RTSPStreamInfo &stream) {
    const uint32_t changes = stream.senderChanges.load(std::memory_order_acquire);
    if (std::exchange(stream.rtcp.senderChanges, changes) == changes) return;
    stream.rtcp.seqCycles = 0;
    stream.rtcp.seqWrapPending = 0;
    stream.rtcp.prevCumulativeLost = totalPktLost.load(std::memory_order_relaxed);
    if (stream.rtcp.senderReport.senderSsrc != stream.remoteSsrc.load(std::memory_order_relaxed))
        stream.rtcp.senderReport = {};
}

void WriteReport(RTSPStreamInfo &stream, uint8_t *at) {
    StartAnewForNewSender(stream);
    const uint32_t extendedHighest = ExtendedHighestNumber(stream);
    const SenderReport &last = stream.rtcp.senderReport;
    const bool sawSenderReport = last.ntpMsw != 0 || last.ntpLsw != 0;
    at[0] = kVersionAndOneItem;
    at[1] = kReceiverReport;
    wire::PutU16(at + 2, kReportSize / 4 - 1);
    wire::PutU32(at + 4, stream.localSsrc.load(std::memory_order_relaxed));
    wire::PutU32(at + 8, stream.remoteSsrc.load(std::memory_order_relaxed));
    wire::PutU32(at + 12, stream.cumulativeLost.load(std::memory_order_relaxed)); // its top byte gives way
    at[12] = FractionLost(stream, extendedHighest);
    wire::PutU32(at + 16, extendedHighest);
    wire::PutU32(at + 24, last.ntpMsw << 16 | last.ntpLsw >> 16);
    wire::PutU32(at + 28, sawSenderReport ? 1 : 0); // Kept: a constant, not a measured delay.
}

// Kept: the item's length counts the name's zero byte.
std::size_t NameLength(std::string_view hostName) { return hostName.size() + 1; }

int32_t DescriptionSize(std::string_view hostName) {
    if (hostName.data() == nullptr) return 0;
    return static_cast<int32_t>((NameLength(hostName) + 13) / 4 * 4);
}

void WriteDescription(const RTSPStreamInfo &stream, uint8_t *at, std::string_view hostName) {
    at[0] = kVersionAndOneItem;
    at[1] = kSourceDescription;
    wire::PutU16(at + 2, static_cast<uint32_t>(DescriptionSize(hostName)) / 4 - 1);
    wire::PutU32(at + 4, stream.localSsrc.load(std::memory_order_relaxed));
    at[8] = kCanonicalName;
    at[9] = static_cast<uint8_t>(NameLength(hostName));
    std::memcpy(at + 10, hostName.data(), hostName.size());
}

} // namespace

uint32_t ChooseSsrc(const RTSPStreamInfo &stream) {
    // A generator of our own: the host's sequence of rand() is left alone.
    auto seed = static_cast<unsigned>(GetTimeValue() + reinterpret_cast<uintptr_t>(&stream));
    const auto high = static_cast<uint32_t>(rand_r(&seed)) << 16;
    return high ^ static_cast<uint32_t>(rand_r(&seed));
}

int32_t CreateRRPacket(RTSPStreamInfo *stream, uint8_t *buffer, int32_t bufferSize) {
    std::array<char, kHostNameArea + 1> hostName = {}; // ends in a zero even when the name fills the area
    if (gethostname(hostName.data(), kHostNameArea) != 0)
        return WriteReceiverReport(*stream, buffer, bufferSize, {});
    return WriteReceiverReport(*stream, buffer, bufferSize, hostName.data());
}

int32_t WriteReceiverReport(RTSPStreamInfo &stream, uint8_t *buffer, int32_t bufferSize,
                            std::string_view hostName) {
    const int32_t size = kReportSize + DescriptionSize(hostName);
    if (bufferSize < std::max(size, kSmallestBuffer)) {
        PrintEvent("Error: can't send RTCP: block is too small\n");
        return -1;
    }
    std::memset(buffer, 0, static_cast<std::size_t>(size)); // the zero byte and the padding stay as they are now
    WriteReport(stream, buffer);
    if (hostName.data() != nullptr) WriteDescription(stream, buffer + kReportSize, hostName);
    return size;
}

} // namespace rtsptap
