#include "rtp/codec_bits.h"

#include <algorithm>
#include <iterator>

namespace rtsptap {

// ---- NAL units ----

std::size_t FindStartCode(std::span<const uint8_t> bytes) {
    constexpr uint8_t kStartCode[kStartCodeBytes] = {0, 0, 1};
    const auto found = std::search(bytes.begin(), bytes.end(), std::begin(kStartCode), std::end(kStartCode));
    return static_cast<std::size_t>(found - bytes.begin());
}

std::span<const uint8_t> NextNalUnit(std::span<const uint8_t> &bytes) {
    const auto isZero = [](uint8_t byte) { return byte == 0; };
    std::span<const uint8_t> unit;
    while (unit.empty() && !bytes.empty()) {
        const auto zeros = static_cast<std::size_t>(std::ranges::find_if_not(bytes, isZero) - bytes.begin());
        const bool isStart = zeros >= 2 && zeros < bytes.size() && bytes[zeros] == 1;
        if (isStart) bytes = bytes.subspan(zeros + 1);
        unit = bytes.first(FindStartCode(bytes));
        bytes = bytes.subspan(unit.size());
        while (!unit.empty() && unit.back() == 0) unit = unit.first(unit.size() - 1);
    }
    return unit;
}

// ---- MPEG-4 audio ----

namespace {

constexpr int32_t kSpectralBandReplication = 5;
constexpr int32_t kParametricStereo = 29;

// Speakers by channel configuration (table 1.19).
constexpr int32_t kChannels[16] = {0, 1, 2, 3, 4, 5, 6, 8, 0, 0, 0, 7, 8, 24, 8, 0};

// 5 bits; 31 escapes to 6 more.
bool TakeObjectType(BitReader &bits, int32_t &objectType) {
    constexpr int32_t kEscape = 31;
    if (!bits.Take(5, objectType)) return false;
    if (objectType != kEscape) return true;
    if (!bits.Take(6, objectType)) return false;
    objectType += 32;
    return true;
}

// 4 bits of index; 15 escapes to the rate itself in 24 bits.
bool TakeSamplingRate(BitReader &bits, int32_t &samplingRate) {
    constexpr int32_t kExplicit = 15;
    int32_t index = 0;
    if (!bits.Take(4, index)) return false;
    if (index == kExplicit) return bits.Take(24, samplingRate) && samplingRate != 0;
    samplingRate = adtsSamplingRates[index];
    return samplingRate != 0;
}

} // namespace

//  object type | rate | channels (4) | with SBR or PS: extension's rate, core object type | codec's own ...
bool TakeAudioConfig(BitReader &bits, AudioConfig &config) {
    int32_t channelConfiguration = 0;
    if (!TakeObjectType(bits, config.objectType) || !TakeSamplingRate(bits, config.samplingRate) ||
        !bits.Take(4, channelConfiguration))
        return false;
    config.channels = kChannels[channelConfiguration];
    if (config.objectType != kSpectralBandReplication && config.objectType != kParametricStereo) return true;
    int32_t extensionRate = 0;
    return TakeSamplingRate(bits, extensionRate) && TakeObjectType(bits, config.objectType);
}

} // namespace rtsptap
