#include "media/key_frame.h"

#include <algorithm>

namespace tool {
namespace {

// RFC 6184, 5.2: the five lower bits of the first byte.
enum NalType : uint8_t {
    kIdrSlice = 5,
    kSps = 7,
    kAggregateA = 24,
    kAggregateB = 25,
    kFragmentA = 28,
    kFragmentB = 29
};

uint8_t TypeOf(uint8_t byte) { return byte & 0x1f; }

using Nal = std::span<const uint8_t>;

// The NAL units that lie in a packet whole: itself, or those of an aggregate, each behind two bytes of length.
std::vector<Nal> WholeNals(std::span<const uint8_t> payload) {
    const uint8_t type = payload.empty() ? uint8_t{0} : TypeOf(payload[0]);
    if (type != kAggregateA && type != kAggregateB)
        return type == 0 || type > kAggregateB ? std::vector<Nal>() : std::vector<Nal>{payload};
    std::vector<Nal> nals;
    std::size_t at = type == kAggregateA ? 1 : 3; // B has a decoding order number
    while (at + 2 < payload.size()) {
        const std::size_t length = std::size_t{payload[at]} << 8 | payload[at + 1];
        at += 2;
        if (length == 0 || length > payload.size() - at) break;
        nals.push_back(payload.subspan(at, length));
        at += length;
    }
    return nals;
}

bool BeginsH264KeyFrame(std::span<const uint8_t> payload) {
    constexpr uint8_t kStart = 0x80; // of a fragmented unit
    const auto isKey = [](uint8_t byte) { return TypeOf(byte) == kIdrSlice || TypeOf(byte) == kSps; };
    if (payload.size() < 2) return false;
    if (TypeOf(payload[0]) == kFragmentA || TypeOf(payload[0]) == kFragmentB)
        return (payload[1] & kStart) != 0 && isKey(payload[1]);
    const std::vector<Nal> nals = WholeNals(payload);
    return std::any_of(nals.begin(), nals.end(), [&isKey](Nal nal) { return isKey(nal[0]); });
}

// A picture's start code, and in the two bits behind it 0 for intra (ISO/IEC 14496-2, 6.2.5).
bool BeginsMpeg4KeyFrame(std::span<const uint8_t> payload) {
    constexpr uint8_t kPicture[] = {0x00, 0x00, 0x01, 0xb6};
    const auto found = std::search(payload.begin(), payload.end(), std::begin(kPicture), std::end(kPicture));
    return payload.end() - found > 4 && (found[4] & 0xc0) == 0;
}

} // namespace

std::span<const uint8_t> PayloadOf(const RTPStreamData &packet) {
    const auto before = static_cast<std::size_t>(packet.payload - packet.packetData);
    if (packet.payload < packet.packetData || before > packet.packetLength) return {};
    if (packet.payloadLength > packet.packetLength - before) return {};
    return {packet.payload, packet.payloadLength};
}

bool HasKeyFrames(int32_t codecType) {
    return codecType == RTP_CODEC_H264 || codecType == RTP_CODEC_MP4V_ES || codecType == RTP_CODEC_JPEG;
}

bool BeginsKeyFrame(int32_t codecType, std::span<const uint8_t> payload) {
    if (codecType == RTP_CODEC_H264) return BeginsH264KeyFrame(payload);
    if (codecType == RTP_CODEC_MP4V_ES) return BeginsMpeg4KeyFrame(payload);
    return codecType == RTP_CODEC_JPEG && !payload.empty();
}

std::span<const uint8_t> FindSps(std::span<const uint8_t> payload) {
    for (const Nal nal : WholeNals(payload))
        if (TypeOf(nal[0]) == kSps) return nal;
    return {};
}

} // namespace tool
