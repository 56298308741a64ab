#include "rtp/frames/parameter_sets.h"

#include "rtp/codec_bits.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>

namespace rtsptap {
namespace {

constexpr uint32_t kLargestSide = 16384; // in pixels; beyond it the bits were something else
constexpr uint32_t kMacroblock = 16;
constexpr int32_t kSetInH264 = 7; // types of NAL units
constexpr int32_t kSetInH265 = 33;

// Bits from the front, without the 3 behind two zeros that is there only so that no start code arises. Past the end
// it gives zeros and notes that it was asked.
class SetBits {
public:
    explicit SetBits(Bytes unit) : left_(unit) {}

    bool IsOver() const { return isOver_; }
    void GiveUp() { isOver_ = true; } // what was read makes no sense
    uint32_t Bits(int count) {
        uint32_t value = 0;
        for (; count > 0; --count) value = value << 1 | Bit();
        return value;
    }
    bool Flag() { return Bit() != 0; }
    uint32_t Unsigned() { // Exp-Golomb
        int zeros = 0;
        while (zeros < 31 && !IsOver() && !Flag()) ++zeros;
        return (1U << zeros) - 1 + Bits(zeros);
    }
    void SkipUnsigned(int count) {
        for (; count > 0; --count) Unsigned();
    }
    int32_t Signed() {
        const uint32_t code = Unsigned();
        return code % 2 != 0 ? static_cast<int32_t>(code / 2 + 1) : -static_cast<int32_t>(code / 2);
    }
    // One that is more than it can be ends it all.
    uint32_t Count(uint32_t most) {
        const uint32_t count = Unsigned();
        if (count > most) GiveUp();
        return count > most ? 0 : count;
    }

private:
    uint32_t Bit() {
        if (unread_ == 0) NextByte();
        return byte_ >> --unread_ & 1U;
    }
    void NextByte() {
        unread_ = 8;
        if (zeros_ >= 2 && !left_.empty() && left_[0] == 3) {
            left_ = left_.subspan(1);
            zeros_ = 0;
        }
        isOver_ = isOver_ || left_.empty();
        byte_ = left_.empty() ? uint8_t{0} : left_[0];
        left_ = left_.subspan(left_.empty() ? 0 : 1);
        zeros_ = byte_ == 0 ? zeros_ + 1 : 0;
    }

    Bytes left_;
    uint8_t byte_ = 0;
    int unread_ = 0; // bits of it
    int zeros_ = 0;  // bytes in a row
    bool isOver_ = false;
};

template <std::size_t size, typename... Values>
void Write(char (&text)[size], const char *format, Values... values) {
    std::snprintf(text, size, format, values...);
}

struct Size {
    uint32_t width = 0;
    uint32_t height = 0;
};

bool TakeSize(const SetBits &bits, Size size, RTSPTapVideoFormat &format) {
    const bool makesSense = size.width > 0 && size.width <= kLargestSide && size.height > 0 &&
                            size.height <= kLargestSide && !bits.IsOver();
    if (!makesSense) return false;
    format.width = static_cast<int32_t>(size.width);
    format.height = static_cast<int32_t>(size.height);
    return true;
}

// What is left of a side when its ends are cropped.
uint32_t Cropped(uint32_t side, uint32_t unit, SetBits &bits) {
    const uint64_t cut = uint64_t{unit} * bits.Unsigned() + uint64_t{unit} * bits.Unsigned();
    return cut < side ? side - static_cast<uint32_t>(cut) : 0;
}

// ---- video usability information: what both have in front ----

void SkipLooks(SetBits &bits) {
    constexpr uint32_t kOwnRatio = 255;
    if (bits.Flag() && bits.Bits(8) == kOwnRatio) bits.Bits(32); // shape of a pixel
    if (bits.Flag()) bits.Flag();                                // overscan
    if (bits.Flag()) {
        bits.Bits(4); // kind of signal, range
        if (bits.Flag()) bits.Bits(24);
    }
    if (bits.Flag()) bits.SkipUnsigned(2); // places of colors
}

// `perFrame` units of the time scale are a frame.
void ReadTiming(SetBits &bits, uint32_t perFrame, RTSPTapVideoFormat &format) {
    constexpr double kMostFrames = 1000; // a second; beyond it the bits were something else
    if (!bits.Flag()) return;
    const uint32_t units = bits.Bits(32);
    const uint32_t scale = bits.Bits(32);
    const double rate = units > 0 ? scale / (static_cast<double>(perFrame) * units) : 0;
    if (!bits.IsOver() && rate <= kMostFrames) format.frameRate = rate;
}

// ---- H.264 ----

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

// Whether the set tells the sampling of colors.
bool NameProfile(uint32_t number, uint32_t constraints, RTSPTapVideoFormat &format) {
    constexpr uint32_t kBaseline = 66;
    const char *const prefix = number == kBaseline && (constraints & 0x40) != 0 ? "Constrained " : "";
    const auto *const found = std::ranges::find(kProfiles, number, &Profile::number);
    const bool isKnown = found != std::end(kProfiles);
    if (isKnown) Write(format.profileName, "%s%s", prefix, found->name);
    if (!isKnown) Write(format.profileName, "profile %u", number);
    format.profile = static_cast<int32_t>(number);
    return isKnown && found->hasChroma;
}

void NameLevel(uint32_t number, bool constraint3, RTSPTapVideoFormat &format) {
    constexpr int32_t kHigh = 100;
    format.level = static_cast<int32_t>(number);
    if (number == 9 || (number == 11 && constraint3 && format.profile < kHigh))
        Write(format.levelName, "%s", "1b");
    else
        Write(format.levelName, "%u.%u", number / 10, number % 10);
}

void SkipScalingList(SetBits &bits, int size) {
    int32_t last = 8;
    int32_t next = 8;
    for (int i = 0; i < size && !bits.IsOver(); ++i) {
        if (next != 0) next = static_cast<int32_t>((int64_t{last} + bits.Signed() + 256) % 256);
        if (next != 0) last = next;
    }
}

// The sampling of colors: 0 grey, 1 half in both directions, 2 half in width, 3 whole.
uint32_t ReadChroma(SetBits &bits) {
    const uint32_t chroma = bits.Unsigned();
    const bool separatePlanes = chroma == 3 && bits.Flag();
    bits.SkipUnsigned(2); // depths
    bits.Flag();
    if (bits.Flag())
        for (int list = 0; list < (chroma == 3 ? 12 : 8); ++list)
            if (bits.Flag()) SkipScalingList(bits, list < 6 ? 16 : 64);
    return separatePlanes ? 0 : chroma;
}

void SkipPictureOrder(SetBits &bits) {
    bits.Unsigned(); // of frame_num
    const uint32_t kind = bits.Unsigned();
    if (kind == 0) bits.Unsigned();
    if (kind != 1) return;
    bits.Flag();
    bits.Signed();
    bits.Signed();
    for (uint32_t left = bits.Unsigned(); left > 0 && !bits.IsOver(); --left) bits.Signed();
}

Size ReadSize(SetBits &bits, uint32_t chroma) {
    bits.Unsigned(); // reference frames
    bits.Flag();
    const uint32_t columns = bits.Unsigned() + 1;
    const uint32_t rows = bits.Unsigned() + 1;
    const bool framesOnly = bits.Flag();
    if (!framesOnly) bits.Flag();
    bits.Flag();
    const uint32_t fields = framesOnly ? 1 : 2;
    if (columns > kLargestSide || rows > kLargestSide) return {};
    Size size = {columns * kMacroblock, rows * kMacroblock * fields};
    if (!bits.Flag()) return size;
    const uint32_t unitX = chroma == 1 || chroma == 2 ? 2 : 1;
    const uint32_t unitY = (chroma == 1 ? 2 : 1) * fields;
    size.width = Cropped(size.width, unitX, bits);
    size.height = Cropped(size.height, unitY, bits);
    return size;
}

// ---- H.265 ----

constexpr std::array<const char *, 5> kH265Profiles = {"", "Main", "Main 10", "Main Still Picture",
                                                       "Range Extensions"};

// 7.3.3: of all layers together, then what is told of those below.
void ReadTier(SetBits &bits, uint32_t sublayers, RTSPTapVideoFormat &format) {
    bits.Bits(3); // profile space, tier
    const uint32_t profile = bits.Bits(5);
    const bool isKnown = profile > 0 && profile < kH265Profiles.size();
    if (isKnown) Write(format.profileName, "%s", kH265Profiles[profile]);
    if (!isKnown) Write(format.profileName, "profile %u", profile);
    format.profile = static_cast<int32_t>(profile);
    bits.Bits(32); // compatibility
    bits.Bits(32); // constraints
    bits.Bits(16);
    const uint32_t level = bits.Bits(8); // in thirtieths
    Write(format.levelName, "%u.%u", level / 30, level % 30 / 3);
    format.level = static_cast<int32_t>(level);
    std::array<uint32_t, 8> present = {};
    for (uint32_t layer = 0; layer < sublayers; ++layer) present[layer] = bits.Bits(2);
    if (sublayers > 0) bits.Bits(static_cast<int>(2 * (8 - sublayers)));
    for (uint32_t layer = 0; layer < sublayers; ++layer) {
        for (int byte = 0; (present[layer] & 2) != 0 && byte < 11; ++byte) bits.Bits(8);
        if ((present[layer] & 1) != 0) bits.Bits(8);
    }
}

// 7.3.4
void SkipScalingLists(SetBits &bits) {
    for (int size = 0; size < 4; ++size)
        for (int matrix = 0; matrix < 6 && !bits.IsOver(); matrix += size == 3 ? 3 : 1) {
            if (!bits.Flag()) {
                bits.Unsigned(); // as another one
                continue;
            }
            bits.SkipUnsigned(std::min(64, 1 << (4 + 2 * size)) + (size > 1 ? 1 : 0));
        }
}

// Pictures that one refers to, by their distance: those before it first, the nearest first on either side.
struct References {
    static constexpr uint32_t kMost = 16;
    std::array<int64_t, kMost> distances = {};
    uint32_t count = 0;

    void Add(int64_t distance) {
        if (distance != 0 && count < kMost) distances[count++] = distance;
    }
};

void ReadDistances(SetBits &bits, uint32_t count, int direction, References &references) {
    int64_t distance = 0;
    for (; count > 0 && !bits.IsOver(); --count) {
        distance += direction * (int64_t{bits.Unsigned()} + 1);
        references.Add(distance);
        bits.Flag();
    }
}

// 7.3.7, 7.4.8: told themselves, or by what those of the set before become.
References ReadReferences(SetBits &bits, bool isFirst, const References &before) {
    References references;
    if (isFirst || !bits.Flag()) {
        const uint32_t earlier = bits.Count(References::kMost);
        const uint32_t later = bits.Count(References::kMost);
        ReadDistances(bits, earlier, -1, references);
        ReadDistances(bits, later, 1, references);
        return references;
    }
    const int direction = bits.Flag() ? -1 : 1;
    const int64_t moved = direction * (int64_t{bits.Unsigned()} + 1);
    for (uint32_t i = 0; i <= before.count; ++i) {
        const bool isUsed = bits.Flag();
        const bool stays = isUsed || bits.Flag();
        if (stays) references.Add((i < before.count ? before.distances[i] : 0) + moved);
    }
    std::sort(references.distances.begin(), references.distances.begin() + references.count,
              [](int64_t a, int64_t b) {
                  if ((a < 0) != (b < 0)) return a < 0;
                  return a < 0 ? a > b : a < b;
              });
    return references;
}

// From the size to the usability information.
void SkipCoding(SetBits &bits, uint32_t sublayers) {
    constexpr uint32_t kMostSets = 64;
    constexpr uint32_t kMostLongTerm = 32;
    bits.SkipUnsigned(2); // depths
    const uint32_t orderBits = bits.Count(12) + 4;
    for (uint32_t layer = bits.Flag() ? 0 : sublayers; layer <= sublayers; ++layer) bits.SkipUnsigned(3);
    bits.SkipUnsigned(6); // sizes of blocks
    if (bits.Flag() && bits.Flag()) SkipScalingLists(bits);
    bits.Bits(2);
    if (bits.Flag()) { // samples as they are
        bits.Bits(8);
        bits.SkipUnsigned(2);
        bits.Flag();
    }
    References references;
    const uint32_t sets = bits.Count(kMostSets);
    for (uint32_t i = 0; i < sets && !bits.IsOver(); ++i) references = ReadReferences(bits, i == 0, references);
    if (bits.Flag())
        for (uint32_t left = bits.Count(kMostLongTerm); left > 0; --left)
            bits.Bits(static_cast<int>(orderBits + 1));
    bits.Bits(2);
}

} // namespace

bool ReadH264Set(Bytes unit, RTSPTapVideoFormat &format) {
    SetBits bits(unit);
    if (NalTypeOfH264(static_cast<uint8_t>(bits.Bits(8))) != kSetInH264) return false;
    RTSPTapVideoFormat read = format;
    const uint32_t profile = bits.Bits(8);
    const uint32_t constraints = bits.Bits(8);
    const bool hasChroma = NameProfile(profile, constraints, read);
    NameLevel(bits.Bits(8), (constraints & 0x10) != 0, read);
    bits.Unsigned(); // its identifier
    const uint32_t chroma = hasChroma ? ReadChroma(bits) : 1;
    SkipPictureOrder(bits);
    if (!TakeSize(bits, ReadSize(bits, chroma), read)) return false;
    if (bits.Flag()) {
        SkipLooks(bits);
        ReadTiming(bits, 2, read); // counted in fields
    }
    format = read;
    return true;
}

bool ReadH265Set(Bytes unit, RTSPTapVideoFormat &format) {
    SetBits bits(unit);
    if (NalTypeOfH265(static_cast<uint8_t>(bits.Bits(16) >> 8)) != kSetInH265) return false;
    RTSPTapVideoFormat read = format;
    bits.Bits(4); // the video parameter set
    const uint32_t sublayers = bits.Bits(3);
    bits.Flag();
    ReadTier(bits, sublayers, read);
    bits.Unsigned(); // its identifier
    const uint32_t chroma = bits.Unsigned();
    if (chroma == 3) bits.Flag();
    Size size = {bits.Unsigned(), 0};
    size.height = bits.Unsigned();
    if (bits.Flag()) {
        size.width = Cropped(size.width, chroma == 1 || chroma == 2 ? 2 : 1, bits);
        size.height = Cropped(size.height, chroma == 1 ? 2 : 1, bits);
    }
    if (!TakeSize(bits, size, read)) return false;
    SkipCoding(bits, sublayers);
    if (bits.Flag()) {
        SkipLooks(bits);
        bits.Bits(3);
        if (bits.Flag()) bits.SkipUnsigned(4); // what is shown by default
        ReadTiming(bits, 1, read);
    }
    format = read;
    return true;
}

} // namespace rtsptap
