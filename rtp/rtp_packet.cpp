#include "rtp/rtp_packet.h"

#include "platform/printers.h"
#include "platform/wire.h"
#include "rtp/media_session.h"
#include "rtp/packet_memory.h"
#include "rtp/packet_queue.h"
#include "rtp/protection.h"
#include "rtp/statistics.h"
#include "rtp/stream.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <utility>

namespace rtsptap {

std::atomic<uint32_t> totalPktLost{0};

namespace {

// ---- gaps in the sequence numbers ----

constexpr int32_t kLowestTotal = -20000; // read as signed; a total below it has wrapped
constexpr uint32_t kTotalAfterWrap = 100000;

// Kept: a last number of 0 switches the detection off for the next packet, and a step from 65535 to 0 is no
// gap; every other step that is not +1 is one, a late packet's and the one after it included.
bool IsGap(uint16_t last, uint16_t number) {
    const bool startsOver = (last == 0 || last == UINT16_MAX) && number == 0;
    return !startsOver && number != static_cast<uint16_t>(last + 1) && last != 0;
}

uint32_t AddToTotal(uint32_t gap) {
    uint32_t total = totalPktLost.load(std::memory_order_relaxed);
    uint32_t sum = 0;
    do {
        sum = total + gap;
        if (static_cast<int32_t>(sum) < kLowestTotal) sum = kTotalAfterWrap;
    } while (!totalPktLost.compare_exchange_weak(total, sum, std::memory_order_relaxed));
    return sum;
}

[[gnu::noinline]] void TellGap(RTSPStreamInfo &stream, uint16_t last, uint16_t number) {
    // Kept: the distance is taken without wrapping, so a step from 65535 to 1 counts 65535 packets.
    const int32_t gap = std::abs(number - (last + 1));
    const uint32_t total = AddToTotal(static_cast<uint32_t>(gap));
    PrintEvent("Pkt Lost/Total %d:%d \n", gap, static_cast<int32_t>(total));
    stream.cumulativeLost.store(total, std::memory_order_relaxed);
}

// Compares a new number with the stream's last one. On a gap counts and prints it and returns true.
[[gnu::always_inline]] inline bool CountGap(RTSPStreamInfo &stream, uint16_t sequenceNumber) {
    const uint16_t last = stream.lastSeqNum.load(std::memory_order_relaxed);
    if (!IsGap(last, sequenceNumber)) return false;
    TellGap(stream, last, sequenceNumber);
    return true;
}

// Makes the number the stream's last one, and its base when it is the first.
void NoteSequenceNumber(RTSPStreamInfo &stream, uint16_t sequenceNumber) {
    if (stream.baseSeqNum.load(std::memory_order_relaxed) < 0)
        stream.baseSeqNum.store(sequenceNumber, std::memory_order_relaxed);
    stream.lastSeqNum.store(sequenceNumber, std::memory_order_relaxed);
}

// ---- the packet ----

// RFC 3550, 5.1 and 5.3.1:
//
//      0                   1                   2                   3
//      0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1
//     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
//   0 |V=2|P|X|  CC   |M|     PT      |       sequence number         |
//   4 |                           timestamp                           |
//   8 |                             SSRC                              |
//  12 |                      CSRC, CC times                           |
//   H |      extension profile        |    length in 32-bit words     |  when X is set
// H+4 |                      extension body                           |
//   O |                         payload                               |
//     |                               padding         | padding count |  when P is set
//     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
constexpr uint8_t kRtpVersion = 2;
constexpr uint32_t kFixedWords = 3;
constexpr uint32_t kExtensionHeader = 4;         // bytes
constexpr uint16_t kExtensionWordsMask = 0x3FFF; // an extension is shorter than 65536 bytes

struct ReturnToPool {
    RTSPStreamInfo *stream;
    void operator()(RTPStreamData *packet) const { ReturnPacketRecord(*stream, packet); }
};
using PooledPacket = std::unique_ptr<RTPStreamData, ReturnToPool>;

// The fixed part, where what has not arrived is 0.
class FixedPart {
public:
    explicit FixedPart(std::span<const uint8_t> packetBytes) : bytes_(packetBytes.data()) {
        if (packetBytes.size() >= kFixedBytes) return;
        padded_ = {};
        std::ranges::copy(packetBytes, padded_.begin());
        bytes_ = padded_.data();
    }
    FixedPart(const FixedPart &) = delete;
    FixedPart &operator=(const FixedPart &) = delete;
    const uint8_t *At(std::size_t offset) const { return bytes_ + offset; }

private:
    static constexpr std::size_t kFixedBytes = kFixedWords * 4;
    const uint8_t *bytes_;
    std::array<uint8_t, kFixedBytes> padded_;
};

void ReadFlags(const FixedPart &fixed, RTPHeader &header) {
    const uint32_t first = *fixed.At(0);
    const uint32_t second = *fixed.At(1);
    header.version = first >> 6 & 0x03;
    header.padding = first >> 5 & 0x01;
    header.extension = first >> 4 & 0x01;
    header.csrcCount = first & 0x0F;
    header.marker = second >> 7 & 0x01;
    header.payloadType = second & 0x7F;
}

uint32_t HeaderSize(const RTPHeader &header) { return (header.csrcCount + kFixedWords) * 4; }

// What a packet claims costs memory, whether it has arrived or not. Extensions that have arrived take no more of it
// together than the ring that they lie in: what would go beyond that is refused, except from a packet alone.
bool CopyExtension(std::span<const uint8_t> packetBytes, RTSPStreamInfo &stream, RTPStreamData &packet) {
    const wire::ReceivedBytes bytes(packetBytes);
    const uint32_t at = HeaderSize(*packet.rtpHeader);
    packet.extensionProfile = bytes.U16(at);
    packet.extensionLength = static_cast<uint16_t>((bytes.U16(at + 2) & kExtensionWordsMask) * 4);
    if (!AllocateExtension(stream.pool, packet, packet.extensionLength, stream.ring.size)) return false;
    const std::size_t body = at + kExtensionHeader;
    if (body < packetBytes.size()) // what the extension claims beyond the packet stays 0
        std::memcpy(packet.extensionData, packetBytes.data() + body,
                    std::min<std::size_t>(packet.extensionLength, packetBytes.size() - body));
    return true;
}

[[gnu::always_inline]] inline void ReadNumbers(const FixedPart &fixed, std::span<const uint8_t> packetBytes,
                                               RTPHeader &header) {
    header.sequenceNumber = wire::U16(fixed.At(2));
    header.timestamp = wire::U32(fixed.At(4));
    header.ssrc = wire::U32(fixed.At(8));
    const wire::ReceivedBytes bytes(packetBytes);
    for (uint32_t i = 0; i < header.csrcCount; ++i) header.csrc[i] = bytes.U32(12 + 4 * i);
}

// The payload may lie beyond the bytes that arrived, never beyond the ring's slack. Its length is what the
// formula says: a packet that claims more than it holds wraps it.
[[gnu::always_inline]] inline void LocatePayload(const RTPDataBuffer &buffer, const RTPHeader &header,
                                                 RTPStreamData &packet) {
    uint32_t offset = HeaderSize(header);
    if (header.extension) offset += kExtensionHeader + packet.extensionLength;
    const uint32_t padding = header.padding ? buffer.data[buffer.length - 1] : 0;
    packet.payloadLength = buffer.length - offset - padding;
    packet.payload = buffer.data + offset;
    packet.packetLength = buffer.length;
    packet.packetData = buffer.data;
}

// From here on the packet is accepted: the stream's and the session's figures change.
[[gnu::always_inline]] inline void CountPacket(RTSPStreamInfo &stream, RTPStreamData &packet, bool isInStream) {
    MediaSession &session = *stream.session;
    const RTPHeader &header = *packet.rtpHeader;
    packet.codecType = stream.codecType.load(std::memory_order_relaxed);
    if (isInStream) {
        if (session.dataProto.load(std::memory_order_relaxed) == DATA_PROTO_UDP)
            packet.lossFlag = CountGap(stream, header.sequenceNumber) ? 1 : 0;
        NoteSequenceNumber(stream, header.sequenceNumber);
    }
    packet.packetIndex = session.packetCounter.fetch_add(1, std::memory_order_relaxed) + 1;
}

// Takes the protection off where the packet lies; behind it stand fewer bytes, all of which it goes on claiming.
// What is in the clear has been read before, and counts for nothing if the packet is not authentic.
[[gnu::noinline]] bool Uncover(RTSPStreamInfo &stream, RTPStreamData &packet) {
    uint32_t length = packet.packetLength;
    stream.watch.refused = !UnprotectRtp(stream, packet.packetData, length);
    if (stream.watch.refused) return false;
    LocatePayload({.length = length, .data = packet.packetData}, *packet.rtpHeader, packet);
    return true;
}

// The same for one that has to be looked at more closely, and may be refused after all.
[[gnu::noinline]] RTPStreamData *CountOnceKnown(RTSPStreamInfo &stream, PooledPacket packet) {
    if (stream.protection != nullptr && !Uncover(stream, *packet)) return nullptr;
    const RTPHeader &header = *packet->rtpHeader;
    if (stream.statistics != nullptr) CountArrival(stream, *packet);
    const Sighting sighting = NoteArrival(stream, header.ssrc, header.sequenceNumber);
    if (sighting == Sighting::kRefused) return nullptr;
    CountPacket(stream, *packet, sighting == Sighting::kInStream);
    return packet.release();
}

// Within the function that queues: a call with its checks costs a tenth of what parsing does.
[[gnu::always_inline]] inline RTPStreamData *Parse(const RTPDataBuffer *rtpDataBuffer,
                                                   RTSPStreamInfo *rtspStreamInfo) {
    const CallTrace trace("ParseRTPData");
    DebugPrint(kDebugEntry, "\t  Input: rtpDataBuffer : %d \n", PrintableHandle(rtpDataBuffer));
    DebugPrint(kDebugEntry, "\t  Input: rtspStreamInfo: %d \n", PrintableHandle(rtspStreamInfo));
    if (rtpDataBuffer == nullptr || rtspStreamInfo == nullptr)
        return trace.Fail(nullptr, "\tEXIT : %s : Invalid input argument\n");

    PooledPacket packet(TakePacketRecord(rtspStreamInfo->pool), {rtspStreamInfo});
    if (packet == nullptr) return trace.Fail(nullptr, "\tEXIT : %s: Memory Allocation Failed\n");

    const std::span<const uint8_t> packetBytes(rtpDataBuffer->data, rtpDataBuffer->length);
    const FixedPart fixed(packetBytes);
    RTPHeader &header = *packet->rtpHeader;
    ReadFlags(fixed, header);
    if (header.version != kRtpVersion) return trace.Fail(nullptr, "\tEXIT : %s: RTP Version Invalid Found\n");
    if (header.extension && !CopyExtension(packetBytes, *rtspStreamInfo, *packet))
        return trace.Fail(nullptr, "\tEXIT : %s: Memory Allocation Failed\n");
    if (!rtspStreamInfo->payloadTypes.Has(header.payloadType)) {
        RtpRtspErrorPrint("\tEXIT : %s: RTP Payload Type %d unsupported\n", trace.Function(), header.payloadType);
        return nullptr;
    }
    ReadNumbers(fixed, packetBytes, header);
    LocatePayload(*rtpDataBuffer, header, *packet);
    const uint8_t *const begin = packet->packetData - rtspStreamInfo->ring.gaps;
    ClaimOf(*packet) = {&rtspStreamInfo->ring, begin, begin + packet->packetLength};
    if (header.ssrc != rtspStreamInfo->plainSsrc.load(std::memory_order_relaxed)) [[unlikely]]
        return CountOnceKnown(*rtspStreamInfo, std::move(packet));
    CountPacket(*rtspStreamInfo, *packet, true);
    return packet.release();
}

} // namespace

RTPStreamData *ParseRTPData(const RTPDataBuffer *rtpDataBuffer, RTSPStreamInfo *rtspStreamInfo) {
    return Parse(rtpDataBuffer, rtspStreamInfo);
}

namespace {

[[gnu::noinline]] void TellRefused(RTSPStreamInfo &stream, FailureText invalidPacketText) {
    CountHandled(stream);
    CountOne(stream.drops.refused);
    CallTrace("RTPDataReceiveThread").Fail(RTSP_FAILURE, invalidPacketText);
}

} // namespace

void AcceptPacket(RTSPStreamInfo &stream, uint32_t length, const ArrivalRules &rules,
                  FailureText invalidPacketText) {
    const RTPDataBuffer bytes{.length = length, .data = PlaceOf(stream.ring)};
    RTPStreamData *const packet = Parse(&bytes, &stream);
    if (packet != nullptr) {
        if (stream.configSearch.missing.load(std::memory_order_relaxed) != 0) SearchPacket(stream, *packet);
        InsertPacket(stream, packet, rules);
    } else if (!std::exchange(stream.watch.refused, false)) {
        TellRefused(stream, invalidPacketText);
    }
    stream.ring.writeIndex += length; // also behind a refused packet
}

} // namespace rtsptap
