#include "media/h264_sps.h"

#include <vector>

namespace tool {
namespace {

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

} // namespace

std::optional<PictureFormat> ParseSps(std::span<const uint8_t> nalUnit) {
    constexpr uint32_t kSpsType = 7;
    BitReader bits(WithoutEmulationPrevention(nalUnit));
    if ((bits.Bits(8) & 0x1f) != kSpsType) return std::nullopt;
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

} // namespace tool
