// AAC (RFC 3640): one or more access units in a packet, behind headers that tell their sizes, or one in fragments.
// Interleaving is not undone: units come out in the order they were sent.
#include "platform/text.h"
#include "platform/wire.h"
#include "rtp/codec_bits.h"
#include "rtp/frames/payloads.h"

#include <algorithm>
#include <limits>

namespace rtsptap {
namespace {

// ---- the description ----

struct CoreConfig {
    AudioConfig is;
    int32_t rateIndex = -1;     // of ADTS; -1: it has none for this rate
    int32_t hasShortFrames = 0; // 960 samples instead of 1024
};

bool ReadConfig(const RTSPTapStreamDescription &description, CoreConfig &config) {
    if (description.config == nullptr || description.configSize < 1) return false;
    BitReader bits({description.config, static_cast<std::size_t>(description.configSize)});
    if (!TakeAudioConfig(bits, config.is)) return false;
    const auto *const rate = std::ranges::find(adtsSamplingRates, config.is.samplingRate);
    if (rate != std::end(adtsSamplingRates)) config.rateIndex = static_cast<int32_t>(rate - adtsSamplingRates);
    return bits.Take(1, config.hasShortFrames);
}

// The frame's size is still missing (ISO/IEC 14496-3, 1.A.2.2).
bool MakeAdtsHeader(AacFormat &aac, const CoreConfig &config) {
    constexpr int32_t kLastObjectType = 4;
    constexpr int32_t kMostChannels = 8;
    const AudioConfig &is = config.is;
    if (is.objectType < 1 || is.objectType > kLastObjectType || config.rateIndex < 0 || is.channels > kMostChannels)
        return false;
    const int32_t channels = std::min(is.channels, 7); // 8 speakers are configuration 7
    aac.adts[0] = 0xff;
    aac.adts[1] = 0xf1; // no check sum
    aac.adts[2] = static_cast<uint8_t>((is.objectType - 1) << 6 | config.rateIndex << 2 | channels >> 2);
    aac.adts[3] = static_cast<uint8_t>((channels & 3) << 6);
    aac.adts[5] = 0x1f; // buffer fullness: not said
    aac.adts[6] = 0xfc;
    return true;
}

// The clock may count the samples of the whole, twice those of the core.
uint32_t TicksOf(uint32_t samples, int32_t clockRate, int32_t coreRate) {
    if (clockRate <= 0 || coreRate <= 0) return samples;
    return static_cast<uint32_t>(int64_t{samples} * clockRate / coreRate);
}

bool ReadFormat(AacFormat &aac, const char *fmtp) {
    constexpr int32_t kLongest = 16; // bits; 13 and 6 are what there is
    const bool isLowRate = EqualIgnoringCase(FormatParameter(fmtp, "mode"), "AAC-lbr");
    aac.constantSize = FormatNumber(fmtp, "constantsize", 0);
    aac.sizeLength = FormatNumber(fmtp, "sizelength", aac.constantSize > 0 ? 0 : isLowRate ? 6 : 13);
    aac.indexLength = FormatNumber(fmtp, "indexlength", aac.constantSize > 0 ? 0 : isLowRate ? 2 : 3);
    aac.indexDeltaLength = FormatNumber(fmtp, "indexdeltalength", aac.indexLength);
    aac.ctsDeltaLength = FormatNumber(fmtp, "ctsdeltalength", 0);
    aac.dtsDeltaLength = FormatNumber(fmtp, "dtsdeltalength", 0);
    aac.hasRandomAccess = FormatNumber(fmtp, "randomaccessindication", 0);
    aac.streamStateLength = FormatNumber(fmtp, "streamstateindication", 0);
    const auto lengths = {aac.sizeLength,     aac.indexLength,    aac.indexDeltaLength,
                          aac.ctsDeltaLength, aac.dtsDeltaLength, aac.streamStateLength};
    return std::ranges::all_of(lengths, [](int32_t length) { return length >= 0 && length <= kLongest; }) &&
           aac.constantSize >= 0 && aac.constantSize <= std::numeric_limits<uint16_t>::max() &&
           (aac.sizeLength > 0) != (aac.constantSize > 0);
}

// ---- a packet ----

void FinishUnit(Assembly &assembly) {
    MarkKey(assembly);
    FinishFrame(assembly);
}

void BeginUnit(Assembly &assembly, std::size_t size) {
    constexpr std::size_t kHeaderBytes = sizeof assembly.aac.adts;
    if (assembly.format != RTSPTAP_FRAMES_STREAM) return;
    uint8_t header[kHeaderBytes];
    std::ranges::copy(assembly.aac.adts, header);
    const std::size_t whole = size + kHeaderBytes; // 13 bits
    header[3] = static_cast<uint8_t>(header[3] | (whole >> 11 & 3));
    header[4] = static_cast<uint8_t>(whole >> 3);
    header[5] = static_cast<uint8_t>(header[5] | (whole & 7) << 5);
    Append(assembly, header);
}

bool Skip(BitReader &bits, int32_t count) {
    int32_t value = 0;
    return bits.Take(static_cast<unsigned>(count), value);
}

// A flag, and where it is set that many bits.
bool SkipFlagged(BitReader &bits, int32_t count) {
    int32_t flag = 0;
    return count == 0 || (bits.Take(1, flag) && (flag == 0 || Skip(bits, count)));
}

// A header of the section (RFC 3640, 3.2.1.1); false behind the last one. Where nothing is told, all are alike.
bool TakeHeader(const AacFormat &aac, BitReader &bits, bool isFirst, int32_t &size) {
    size = aac.constantSize;
    if (aac.sizeLength > 0 && !bits.Take(static_cast<unsigned>(aac.sizeLength), size)) return false;
    return Skip(bits, isFirst ? aac.indexLength : aac.indexDeltaLength) &&
           (isFirst || SkipFlagged(bits, aac.ctsDeltaLength)) && SkipFlagged(bits, aac.dtsDeltaLength) &&
           (aac.hasRandomAccess == 0 || Skip(bits, 1)) && Skip(bits, aac.streamStateLength);
}

bool HasHeaders(const AacFormat &aac) {
    return aac.sizeLength + aac.indexLength + aac.indexDeltaLength + aac.ctsDeltaLength + aac.dtsDeltaLength +
               aac.hasRandomAccess + aac.streamStateLength >
           0;
}

// One that is longer than what came: the next packets bring the rest, each with the same header.
void AddFragment(Assembly &assembly, Bytes bytes, std::size_t size, bool followsLoss) {
    const std::size_t held = assembly.bytes.size() - assembly.current.begin;
    if (held == 0) {
        assembly.aacExpected = size;
        BeginUnit(assembly, size);
        if (followsLoss) MarkDamaged(assembly);
    }
    Append(assembly, bytes);
    assembly.aacExpected -= std::min(assembly.aacExpected, bytes.size());
    if (assembly.aacExpected == 0) FinishUnit(assembly);
}

void AddUnits(Assembly &assembly, Bytes headers, Bytes units, bool followsLoss) {
    BitReader bits(headers);
    int32_t size = 0;
    for (bool isFirst = true; !units.empty(); isFirst = false) {
        if (!TakeHeader(assembly.aac, bits, isFirst, size)) return;
        const auto length = static_cast<std::size_t>(size);
        if (length == 0) continue;
        if (!isFirst) BeginFrameBehind(assembly, assembly.aac.samples);
        if (isFirst && (assembly.aacExpected > 0 || length > units.size()))
            return AddFragment(assembly, units, length, followsLoss);
        BeginUnit(assembly, length);
        if (length > units.size()) MarkDamaged(assembly);
        Append(assembly, units.first(std::min(length, units.size())));
        FinishUnit(assembly);
        units = units.subspan(std::min(length, units.size()));
    }
}

} // namespace

bool PrepareAac(Assembly &assembly, const RTSPTapStreamDescription &description) {
    CoreConfig config;
    const bool isKnown = ReadConfig(description, config);
    const int32_t coreRate = isKnown ? config.is.samplingRate : 0;
    assembly.aac.samples = TicksOf(config.hasShortFrames != 0 ? 960 : 1024, description.clockRate, coreRate);
    const bool isFramed =
        assembly.format != RTSPTAP_FRAMES_STREAM || (isKnown && MakeAdtsHeader(assembly.aac, config));
    return isFramed && ReadFormat(assembly.aac, description.fmtp);
}

void AddAac(Assembly &assembly, const Packet &packet) {
    constexpr std::size_t kLengthBytes = 2; // of the section of headers, in bits
    const Bytes payload = packet.payload;
    if (!HasHeaders(assembly.aac)) return AddUnits(assembly, {}, payload, packet.followsLoss);
    if (payload.size() < kLengthBytes) return MarkDamaged(assembly);
    const std::size_t headerBytes = (std::size_t{wire::U16(payload.data())} + 7) / 8;
    if (headerBytes > payload.size() - kLengthBytes) return MarkDamaged(assembly);
    AddUnits(assembly, payload.subspan(kLengthBytes, headerBytes), payload.subspan(kLengthBytes + headerBytes),
             packet.followsLoss);
}

} // namespace rtsptap
