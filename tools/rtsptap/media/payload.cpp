#include "media/payload.h"

#include <algorithm>
#include <vector>

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

// The sequence parameter set in a packet; empty when it has none, or not whole.
Nal FindSps(std::span<const uint8_t> payload) {
    for (const Nal nal : WholeNals(payload))
        if (TypeOf(nal[0]) == kSps) return nal;
    return {};
}

// A picture's start code, and in the two bits behind it 0 for intra (ISO/IEC 14496-2, 6.2.5).
bool BeginsMpeg4KeyFrame(std::span<const uint8_t> payload) {
    constexpr uint8_t kPicture[] = {0x00, 0x00, 0x01, 0xb6};
    const auto found = std::search(payload.begin(), payload.end(), std::begin(kPicture), std::end(kPicture));
    return payload.end() - found > 4 && (found[4] & 0xc0) == 0;
}

constexpr uint32_t kLargestSide = 16384; // in pixels; beyond it the bits were something else
constexpr uint32_t kMacroblock = 16;

// Bits from the front. Past the end it gives zeros and notes that it was asked.
class BitReader {
public:
    explicit BitReader(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {}

    bool IsOver() const { return at_ > bytes_.size() * 8; }

    uint32_t Bits(int count) {
        uint32_t value = 0;
        for (; count > 0; --count, ++at_) {
            const std::size_t byte = at_ / 8;
            value = value << 1 | (byte < bytes_.size() ? bytes_[byte] >> (7 - at_ % 8) & 1U : 0U);
        }
        return value;
    }
    bool Flag() { return Bits(1) != 0; }

    uint32_t Unsigned() { // Exp-Golomb
        int zeros = 0;
        while (zeros < 31 && !IsOver() && !Flag()) ++zeros;
        return (1U << zeros) - 1 + Bits(zeros);
    }
    int32_t Signed() {
        const uint32_t code = Unsigned();
        return code % 2 != 0 ? static_cast<int32_t>(code / 2 + 1) : -static_cast<int32_t>(code / 2);
    }

private:
    const std::vector<uint8_t> bytes_;
    std::size_t at_ = 0;
};

// Every 3 behind two zeros is there only so that no start code arises.
std::vector<uint8_t> WithoutEmulationPrevention(std::span<const uint8_t> bytes) {
    std::vector<uint8_t> plain;
    int zeros = 0;
    for (const uint8_t byte : bytes) {
        if (zeros >= 2 && byte == 3) {
            zeros = 0;
            continue;
        }
        zeros = byte == 0 ? zeros + 1 : 0;
        plain.push_back(byte);
    }
    return plain;
}

struct Profile {
    uint32_t number;
    const char *name;
    bool hasChroma; // the set tells the sampling of colors
};

constexpr Profile kProfiles[] = {
    {66, "Baseline", false},       {77, "Main", false},        {88, "Extended", false},   {100, "High", true},
    {110, "High 10", true},        {122, "High 4:2:2", true},  {244, "High 4:4:4", true}, {44, "CAVLC 4:4:4", true},
    {118, "Multiview High", true}, {128, "Stereo High", true},
};

std::string LevelOf(uint32_t number, bool constraint3, uint32_t profile) {
    if (number == 9 || (number == 11 && constraint3 && profile < 100)) return "1b";
    return std::to_string(number / 10) + "." + std::to_string(number % 10);
}

void SkipScalingList(BitReader &bits, int size) {
    int32_t last = 8;
    int32_t next = 8;
    for (int i = 0; i < size && !bits.IsOver(); ++i) {
        if (next != 0) next = static_cast<int32_t>((int64_t{last} + bits.Signed() + 256) % 256);
        if (next != 0) last = next;
    }
}

// The sampling of colors: 0 grey, 1 half in both directions, 2 half in width, 3 whole.
uint32_t ReadChroma(BitReader &bits) {
    const uint32_t chroma = bits.Unsigned();
    const bool separatePlanes = chroma == 3 && bits.Flag();
    bits.Unsigned(); // depths
    bits.Unsigned();
    bits.Flag();
    if (bits.Flag())
        for (int list = 0; list < (chroma == 3 ? 12 : 8); ++list)
            if (bits.Flag()) SkipScalingList(bits, list < 6 ? 16 : 64);
    return separatePlanes ? 0 : chroma;
}

void SkipPictureOrder(BitReader &bits) {
    bits.Unsigned(); // of frame_num
    const uint32_t kind = bits.Unsigned();
    if (kind == 0) bits.Unsigned();
    if (kind != 1) return;
    bits.Flag();
    bits.Signed();
    bits.Signed();
    for (uint32_t left = bits.Unsigned(); left > 0 && !bits.IsOver(); --left) bits.Signed();
}

void ReadSize(BitReader &bits, uint32_t chroma, PictureFormat &format) {
    bits.Unsigned(); // reference frames
    bits.Flag();
    const uint32_t columns = bits.Unsigned() + 1;
    const uint32_t rows = bits.Unsigned() + 1;
    const bool framesOnly = bits.Flag();
    if (!framesOnly) bits.Flag();
    bits.Flag();
    const uint32_t fields = framesOnly ? 1 : 2;
    if (columns > kLargestSide || rows > kLargestSide) return;
    format.width = columns * kMacroblock;
    format.height = rows * kMacroblock * fields;
    if (!bits.Flag()) return;
    const uint32_t unitX = chroma == 1 || chroma == 2 ? 2 : 1;
    const uint32_t unitY = (chroma == 1 ? 2 : 1) * fields;
    const uint64_t across = uint64_t{unitX} * bits.Unsigned() + uint64_t{unitX} * bits.Unsigned();
    const uint64_t down = uint64_t{unitY} * bits.Unsigned() + uint64_t{unitY} * bits.Unsigned();
    format.width = across < format.width ? format.width - static_cast<uint32_t>(across) : 0;
    format.height = down < format.height ? format.height - static_cast<uint32_t>(down) : 0;
}

// ITU-T H.264, 7.3.2.1.1: the NAL unit without start code. None when it is cut short or makes no sense.
std::optional<PictureFormat> ParseSps(std::span<const uint8_t> nalUnit) {
    BitReader bits(WithoutEmulationPrevention(nalUnit));
    if ((bits.Bits(8) & 0x1f) != NalType::kSps) return std::nullopt;
    const uint32_t number = bits.Bits(8);
    const uint32_t constraints = bits.Bits(8);
    PictureFormat format;
    format.profile = "profile " + std::to_string(number);
    format.level = LevelOf(bits.Bits(8), (constraints & 0x10) != 0, number);
    bits.Unsigned(); // its identifier
    uint32_t chroma = 1;
    for (const Profile &profile : kProfiles) {
        if (profile.number != number) continue;
        const bool constrained = number == 66 && (constraints & 0x40) != 0;
        format.profile = std::string(constrained ? "Constrained " : "") + profile.name;
        if (profile.hasChroma) chroma = ReadChroma(bits);
    }
    SkipPictureOrder(bits);
    ReadSize(bits, chroma, format);
    const bool makesSense = format.width > 0 && format.width <= kLargestSide && format.height > 0 &&
                            format.height <= kLargestSide && !bits.IsOver();
    if (!makesSense) return std::nullopt;
    return format;
}

} // namespace

std::span<const uint8_t> PayloadOf(const RTPStreamData &packet) {
    const auto before = static_cast<std::size_t>(packet.payload - packet.packetData);
    if (packet.payload < packet.packetData || before > packet.packetLength) return {};
    if (packet.payloadLength > packet.packetLength - before) return {};
    return {packet.payload, packet.payloadLength};
}

bool BeginsKeyFrame(int32_t codecType, std::span<const uint8_t> payload) {
    switch (codecType) {
    case RTP_CODEC_H264:
        return BeginsH264KeyFrame(payload);
    case RTP_CODEC_MP4V_ES:
        return BeginsMpeg4KeyFrame(payload);
    default:
        return codecType == RTP_CODEC_JPEG && !payload.empty();
    }
}

bool HasParameterSets(int32_t codecType, std::span<const uint8_t> payload) {
    return codecType == RTP_CODEC_H264 && !FindSps(payload).empty();
}

std::optional<PictureFormat> PictureIn(int32_t codecType, std::span<const uint8_t> payload) {
    constexpr std::size_t kJpegHeaderBytes = 8; // RFC 2435, 3.1: the last two are the size in units of 8
    if (codecType == RTP_CODEC_H264) return ParseSps(FindSps(payload));
    if (codecType != RTP_CODEC_JPEG || payload.size() < kJpegHeaderBytes || payload[6] == 0) return std::nullopt;
    return PictureFormat{"", "", payload[6] * 8U, payload[7] * 8U};
}

} // namespace tool
