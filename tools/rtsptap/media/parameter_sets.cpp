#include "media/parameter_sets.h"

#include <array>
#include <vector>

namespace tool {
namespace {

constexpr uint32_t kLargestSide = 16384; // in pixels; beyond it the bits were something else
constexpr uint32_t kMacroblock = 16;
constexpr uint32_t kSetInH264 = 7; // types of NAL units
constexpr uint32_t kSetInH265 = 33;

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

std::optional<PictureFormat> IfSensible(const BitReader &bits, const PictureFormat &format) {
    const bool makesSense = format.width > 0 && format.width <= kLargestSide && format.height > 0 &&
                            format.height <= kLargestSide && !bits.IsOver();
    return makesSense ? std::optional(format) : std::nullopt;
}

// What is left of a side when its ends are cropped.
uint32_t Cropped(uint32_t side, uint32_t unit, BitReader &bits) {
    const uint64_t cut = uint64_t{unit} * bits.Unsigned() + uint64_t{unit} * bits.Unsigned();
    return cut < side ? side - static_cast<uint32_t>(cut) : 0;
}

// ---- H.264

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
    format.width = Cropped(format.width, unitX, bits);
    format.height = Cropped(format.height, unitY, bits);
}

// ---- H.265

constexpr std::array<const char *, 5> kH265Profiles = {"", "Main", "Main 10", "Main Still Picture",
                                                       "Range Extensions"};

// 7.3.3: of all layers together, then what is told of those below.
void ReadTier(BitReader &bits, uint32_t sublayers, PictureFormat &format) {
    bits.Bits(3); // profile space, tier
    const uint32_t profile = bits.Bits(5);
    format.profile = profile > 0 && profile < kH265Profiles.size() ? kH265Profiles[profile]
                                                                   : "profile " + std::to_string(profile);
    bits.Bits(32); // compatibility
    bits.Bits(32); // constraints
    bits.Bits(16);
    const uint32_t level = bits.Bits(8); // in thirtieths
    format.level = std::to_string(level / 30) + "." + std::to_string(level % 30 / 3);
    std::vector<uint32_t> present;
    for (uint32_t layer = 0; layer < sublayers; ++layer) present.push_back(bits.Bits(2));
    if (sublayers > 0) bits.Bits(static_cast<int>(2 * (8 - sublayers)));
    for (const uint32_t flags : present) {
        for (int byte = 0; (flags & 2) != 0 && byte < 11; ++byte) bits.Bits(8);
        if ((flags & 1) != 0) bits.Bits(8);
    }
}

} // namespace

std::optional<PictureFormat> ParseH264Set(std::span<const uint8_t> nalUnit) {
    BitReader bits(WithoutEmulationPrevention(nalUnit));
    if ((bits.Bits(8) & 0x1f) != kSetInH264) return std::nullopt;
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
    return IfSensible(bits, format);
}

std::optional<PictureFormat> ParseH265Set(std::span<const uint8_t> nalUnit) {
    BitReader bits(WithoutEmulationPrevention(nalUnit));
    if ((bits.Bits(16) >> 9 & 0x3f) != kSetInH265) return std::nullopt;
    PictureFormat format;
    bits.Bits(4); // the video parameter set
    const uint32_t sublayers = bits.Bits(3);
    bits.Flag();
    ReadTier(bits, sublayers, format);
    bits.Unsigned(); // its identifier
    const uint32_t chroma = bits.Unsigned();
    if (chroma == 3) bits.Flag();
    format.width = bits.Unsigned();
    format.height = bits.Unsigned();
    if (bits.Flag()) {
        format.width = Cropped(format.width, chroma == 1 || chroma == 2 ? 2 : 1, bits);
        format.height = Cropped(format.height, chroma == 1 ? 2 : 1, bits);
    }
    return IfSensible(bits, format);
}

} // namespace tool
