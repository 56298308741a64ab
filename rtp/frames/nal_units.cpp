// H.264 (RFC 6184) and H.265 (RFC 7798): NAL units alone in a packet, several together, and one in fragments.
#include "platform/wire.h"
#include "rtp/codec_bits.h"
#include "rtp/frames/payloads.h"

#include <algorithm>
#include <initializer_list>
#include <iterator>

namespace rtsptap {
namespace {

constexpr std::size_t kPrefixBytes = 4; // a start code, or a length

void BeginUnit(Assembly &assembly) {
    constexpr uint8_t kStartCode[kPrefixBytes] = {0, 0, 0, 1}; // where lengths are asked for it is overwritten
    assembly.unitBegin = assembly.bytes.size();
    assembly.isInUnit = true;
    Append(assembly, kStartCode);
}

void DropUnit(Assembly &assembly) {
    if (!assembly.isInUnit) return;
    CutBack(assembly, assembly.unitBegin);
    assembly.isInUnit = false;
    MarkDamaged(assembly);
}

void EndUnit(Assembly &assembly) {
    const std::size_t size = assembly.bytes.size() - assembly.unitBegin;
    if (size <= kPrefixBytes) return DropUnit(assembly); // it did not fit
    if (assembly.format == RTSPTAP_FRAMES_LENGTHS)
        wire::PutU32(assembly.bytes.data() + assembly.unitBegin, static_cast<uint32_t>(size - kPrefixBytes));
    assembly.isInUnit = false;
}

// What a unit of a type means for its frame, before it is appended.
void Announce(Assembly &assembly, bool isKey, bool isParameterSet) {
    if (isParameterSet) assembly.hasOwnSets = true;
    if (!isKey || assembly.current.is.isKey != 0) return;
    MarkKey(assembly);
    if (!assembly.hasOwnSets) Append(assembly, assembly.parameterSets);
}

using Announcer = void (*)(Assembly &assembly, Bytes unit);

void AppendUnit(Assembly &assembly, Announcer announce, Bytes unit) {
    if (unit.empty()) return MarkDamaged(assembly);
    announce(assembly, unit);
    BeginUnit(assembly);
    Append(assembly, unit);
    EndUnit(assembly);
}

// `between` bytes stand before the length of all units but the first.
void AppendUnits(Assembly &assembly, Announcer announce, Bytes units, std::size_t between) {
    Bytes unit;
    for (std::size_t before = 0; TakeNalUnit(units, before, unit); before = between)
        AppendUnit(assembly, announce, unit);
    if (!units.empty()) MarkDamaged(assembly);
}

struct Fragment {
    Bytes header; // the unit's own, made up from that of the packet
    Bytes bytes;
    bool isFirst = false;
    bool isLast = false;
};

void AppendFragment(Assembly &assembly, Announcer announce, const Fragment &fragment, bool followsLoss) {
    if (fragment.isFirst || followsLoss) DropUnit(assembly);
    if (!fragment.isFirst && !assembly.isInUnit) return MarkDamaged(assembly);
    if (fragment.isFirst) {
        announce(assembly, fragment.header);
        BeginUnit(assembly);
        Append(assembly, fragment.header);
    }
    Append(assembly, fragment.bytes);
    if (fragment.isLast) EndUnit(assembly);
}

void KeepSets(Assembly &assembly, std::initializer_list<Bytes> sets) {
    constexpr uint8_t kStartCode[] = {0, 0, 0, 1};
    if (assembly.format != RTSPTAP_FRAMES_STREAM) return;
    for (const Bytes set : sets) {
        if (set.empty()) continue;
        assembly.parameterSets.insert(assembly.parameterSets.end(), std::begin(kStartCode), std::end(kStartCode));
        assembly.parameterSets.insert(assembly.parameterSets.end(), set.begin(), set.end());
    }
}

Bytes SetOf(const uint8_t *bytes, int32_t size) {
    return bytes != nullptr && size > 0 ? Bytes{bytes, static_cast<std::size_t>(size)} : Bytes{};
}

constexpr uint8_t kFirstFragment = 0x80;
constexpr uint8_t kLastFragment = 0x40;

// ---- H.264 ----

void AnnounceH264(Assembly &assembly, Bytes unit) {
    constexpr uint8_t kIdrSlice = 5;
    constexpr uint8_t kSequenceSet = 7;
    const int32_t type = NalTypeOfH264(unit[0]);
    Announce(assembly, type == kIdrSlice, type == kSequenceSet);
}

void AddFragmentOfH264(Assembly &assembly, const Packet &packet, std::size_t headerBytes) {
    if (packet.payload.size() <= headerBytes) return MarkDamaged(assembly);
    const uint8_t bits = packet.payload[1];
    const auto header = static_cast<uint8_t>((packet.payload[0] & 0xe0) | (bits & 0x1f));
    AppendFragment(assembly, AnnounceH264,
                   {.header = {&header, 1},
                    .bytes = packet.payload.subspan(headerBytes),
                    .isFirst = (bits & kFirstFragment) != 0,
                    .isLast = (bits & kLastFragment) != 0},
                   packet.followsLoss);
}

// ---- H.265 ----

constexpr std::size_t kH265Header = 2;
constexpr std::size_t kDecodingOrder = 2; // bytes of a number, where there are any

void AnnounceH265(Assembly &assembly, Bytes unit) {
    constexpr uint8_t kFirstRandomAccess = 16;
    constexpr uint8_t kLastRandomAccess = 23;
    constexpr uint8_t kSequenceSet = 33;
    const int32_t type = NalTypeOfH265(unit[0]);
    Announce(assembly, type >= kFirstRandomAccess && type <= kLastRandomAccess, type == kSequenceSet);
}

void AddFragmentOfH265(Assembly &assembly, const Packet &packet) {
    const Bytes payload = packet.payload;
    const bool isFirst = payload.size() > kH265Header && (payload[2] & kFirstFragment) != 0;
    const std::size_t before = kH265Header + 1 + (assembly.hasDecodingOrder && isFirst ? kDecodingOrder : 0);
    if (payload.size() <= before) return MarkDamaged(assembly);
    const uint8_t header[kH265Header] = {static_cast<uint8_t>((payload[0] & 0x81) | (payload[2] & 0x3f) << 1),
                                         payload[1]};
    AppendFragment(assembly, AnnounceH265,
                   {.header = header,
                    .bytes = payload.subspan(before),
                    .isFirst = isFirst,
                    .isLast = (payload[2] & kLastFragment) != 0},
                   packet.followsLoss);
}

} // namespace

bool TakeNalUnit(Bytes &units, std::size_t before, Bytes &unit) {
    constexpr std::size_t kLengthBytes = 2;
    const std::size_t begin = before + kLengthBytes;
    const std::size_t size = units.size() > begin ? wire::U16(units.data() + before) : 0;
    unit = {};
    if (size == 0 || size > units.size() - begin) return false;
    unit = units.subspan(begin, size);
    units = units.subspan(begin + size);
    return true;
}

bool PrepareH264(Assembly &assembly, const RTSPTapStreamDescription &description) {
    KeepSets(assembly, {SetOf(description.sps, description.spsSize), SetOf(description.pps, description.ppsSize)});
    return true;
}

void AddH264(Assembly &assembly, const Packet &packet) {
    enum : uint8_t { kAggregateA = 24, kAggregateB, kMultiTime16, kMultiTime24, kFragmentA, kFragmentB };
    const Bytes payload = packet.payload;
    if (packet.followsLoss) MarkDamaged(assembly);
    const int32_t type = NalTypeOfH264(payload[0]);
    if (type == kFragmentA || type == kFragmentB)
        return AddFragmentOfH264(assembly, packet, type == kFragmentA ? 2 : 4); // B: with a decoding order number
    DropUnit(assembly);
    switch (type) {
    case kAggregateA:
        return AppendUnits(assembly, AnnounceH264, payload.subspan(1), 0);
    case kAggregateB:
        return AppendUnits(assembly, AnnounceH264, payload.subspan(std::min<std::size_t>(3, payload.size())), 0);
    default:
        if (type == 0 || type >= kMultiTime16)
            return MarkDamaged(assembly); // several times in a packet: nobody sends them
        return AppendUnit(assembly, AnnounceH264, payload);
    }
}

bool PrepareH265(Assembly &assembly, const RTSPTapStreamDescription &description) {
    KeepSets(assembly, {SetOf(description.vps, description.vpsSize), SetOf(description.sps, description.spsSize),
                        SetOf(description.pps, description.ppsSize)});
    assembly.hasDecodingOrder = FormatNumber(description.fmtp, "sprop-max-don-diff", 0) > 0;
    return true;
}

void AddH265(Assembly &assembly, const Packet &packet) {
    constexpr uint8_t kAggregate = 48;
    constexpr uint8_t kFragment = 49;
    const Bytes payload = packet.payload;
    if (packet.followsLoss) MarkDamaged(assembly);
    const std::size_t orderBytes = assembly.hasDecodingOrder ? kDecodingOrder : 0;
    const int32_t type = NalTypeOfH265(payload[0]);
    if (type == kFragment) return AddFragmentOfH265(assembly, packet);
    DropUnit(assembly);
    if (type > kFragment || payload.size() <= kH265Header + orderBytes) return MarkDamaged(assembly);
    if (type == kAggregate)
        return AppendUnits(assembly, AnnounceH265, payload.subspan(kH265Header + orderBytes), orderBytes / 2);
    if (orderBytes == 0) return AppendUnit(assembly, AnnounceH265, payload);
    // Its number stands between its header and the rest.
    AppendFragment(assembly, AnnounceH265,
                   {payload.first(kH265Header), payload.subspan(kH265Header + orderBytes), true, true}, false);
}

} // namespace rtsptap
