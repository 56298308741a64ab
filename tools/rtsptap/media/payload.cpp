#include "media/payload.h"

#include <algorithm>
#include <iterator>
#include <vector>

namespace tool {
namespace {

using Bytes = std::span<const uint8_t>;

// ---- NAL units

// How a codec packs them: its types and where they stand (RFC 6184, 5.2; RFC 7798, 4.4).
struct NalRules {
    std::size_t headerBytes;
    uint8_t (*typeOf)(const uint8_t *header);
    uint8_t aggregate;
    uint8_t oddAggregate; // with two bytes of order in front; none: 0
    uint8_t fragment;
    uint8_t oddFragment;
    uint8_t fragmentTypes; // bits of the type behind a fragment's header
    uint8_t set;           // the sequence parameter set
    bool (*isKey)(uint8_t type);
};

constexpr NalRules kH264 = {1,
                            [](const uint8_t *header) { return static_cast<uint8_t>(header[0] & 0x1f); },
                            24,
                            25,
                            28,
                            29,
                            0x1f,
                            7,
                            [](uint8_t type) { return type == 5 || type == 7; }};

constexpr NalRules kH265 = {
    2,  [](const uint8_t *header) { return static_cast<uint8_t>(header[0] >> 1 & 0x3f); },  48, 0, 49, 0, 0x3f,
    33, [](uint8_t type) { return (type >= 16 && type <= 21) || type == 32 || type == 33; }};

// Those that lie in a packet whole: itself, or those of an aggregate, each behind two bytes of length.
std::vector<Bytes> WholeNals(const NalRules &rules, Bytes payload) {
    if (payload.size() < rules.headerBytes) return {};
    const uint8_t type = rules.typeOf(payload.data());
    const bool isOdd = rules.oddAggregate != 0 && type == rules.oddAggregate;
    if (type != rules.aggregate && !isOdd)
        return type < rules.aggregate ? std::vector<Bytes>{payload} : std::vector<Bytes>();
    std::vector<Bytes> nals;
    std::size_t at = rules.headerBytes + (isOdd ? 2 : 0);
    while (at + 2 < payload.size()) {
        const std::size_t length = std::size_t{payload[at]} << 8 | payload[at + 1];
        at += 2;
        if (length < rules.headerBytes || length > payload.size() - at) break;
        nals.push_back(payload.subspan(at, length));
        at += length;
    }
    return nals;
}

bool BeginsKeyNal(const NalRules &rules, Bytes payload) {
    constexpr uint8_t kStart = 0x80; // of a fragmented unit
    if (payload.size() <= rules.headerBytes) return false;
    const uint8_t type = rules.typeOf(payload.data());
    const uint8_t behind = payload[rules.headerBytes];
    if (type == rules.fragment || (rules.oddFragment != 0 && type == rules.oddFragment))
        return (behind & kStart) != 0 && rules.isKey(behind & rules.fragmentTypes);
    const std::vector<Bytes> nals = WholeNals(rules, payload);
    return std::any_of(nals.begin(), nals.end(),
                       [&rules](Bytes nal) { return rules.isKey(rules.typeOf(nal.data())); });
}

// The sequence parameter set in a packet; empty when it has none, or not whole.
Bytes FindSet(const NalRules &rules, Bytes payload) {
    for (const Bytes nal : WholeNals(rules, payload))
        if (rules.typeOf(nal.data()) == rules.set) return nal;
    return {};
}

// ---- Others

// A byte at a time from the front; past the end zeros, which is noted.
struct ByteReader {
    Bytes left;
    bool isOver = false;

    uint8_t Next() {
        isOver = isOver || left.empty();
        if (isOver) return 0;
        const uint8_t byte = left[0];
        left = left.subspan(1);
        return byte;
    }
    uint32_t Next16() {
        const uint32_t high = Next();
        return high << 8 | Next();
    }
    void SkipPictureId() {
        if ((Next() & 0x80) != 0) Next(); // of 15 bits
    }
};

bool IsSet(uint8_t byte, int bit) { return (byte >> bit & 1) != 0; }

// A picture's start code, and in the two bits behind it 0 for intra (ISO/IEC 14496-2, 6.2.5).
bool BeginsMpeg4KeyFrame(Bytes payload) {
    constexpr uint8_t kPicture[] = {0x00, 0x00, 0x01, 0xb6};
    const auto found = std::search(payload.begin(), payload.end(), std::begin(kPicture), std::end(kPicture));
    return payload.end() - found > 4 && (found[4] & 0xc0) == 0;
}

// The frame behind the descriptor (RFC 7741, 4.2); empty where it does not begin.
Bytes Vp8Frame(Bytes payload) {
    ByteReader bytes{payload};
    const uint8_t first = bytes.Next();
    const uint8_t extension = IsSet(first, 7) ? bytes.Next() : uint8_t{0};
    if (IsSet(extension, 7)) bytes.SkipPictureId();
    if (IsSet(extension, 6)) bytes.Next();
    if (IsSet(extension, 5) || IsSet(extension, 4)) bytes.Next();
    const bool begins = IsSet(first, 4) && (first & 0x07) == 0;
    return begins ? bytes.left : Bytes();
}

bool BeginsVp8KeyFrame(Bytes payload) {
    const Bytes frame = Vp8Frame(payload);
    return !frame.empty() && !IsSet(frame[0], 0);
}

// RFC 6386, 9.1: behind a start code two sides of 14 bits, the lower byte first.
std::optional<PictureFormat> PictureInVp8(Bytes payload) {
    const Bytes frame = Vp8Frame(payload);
    if (frame.size() < 10 || IsSet(frame[0], 0)) return std::nullopt;
    const auto side = [&frame](std::size_t at) { return (frame[at] | uint32_t{frame[at + 1]} << 8) & 0x3fff; };
    return PictureFormat{"", "", side(6), side(8)};
}

bool BeginsVp9KeyFrame(Bytes payload) { return !payload.empty() && !IsSet(payload[0], 6) && IsSet(payload[0], 3); }

// RFC 9628, 4.2: the scalability structure in the descriptor, of its layers the largest.
std::optional<PictureFormat> PictureInVp9(Bytes payload) {
    ByteReader bytes{payload};
    const uint8_t first = bytes.Next();
    const bool isFlexible = IsSet(first, 4);
    if (IsSet(first, 7)) bytes.SkipPictureId();
    if (IsSet(first, 5)) bytes.Next();
    if (IsSet(first, 5) && !isFlexible) bytes.Next();
    for (int left = 3; isFlexible && IsSet(first, 6) && left > 0; --left)
        if (!IsSet(bytes.Next(), 0)) break;
    const uint8_t structure = IsSet(first, 1) ? bytes.Next() : uint8_t{0};
    if (!IsSet(structure, 4)) return std::nullopt;
    PictureFormat format;
    for (int layer = 0; layer <= structure >> 5; ++layer) {
        format.width = bytes.Next16();
        format.height = bytes.Next16();
    }
    return bytes.isOver || format.width == 0 ? std::nullopt : std::optional(format);
}

// "A coded video sequence begins", of the aggregation header.
bool BeginsAv1KeyFrame(Bytes payload) { return !payload.empty() && IsSet(payload[0], 3); }

// RFC 2250, 3.4: the type of the picture; 1 is intra.
bool BeginsMpvKeyFrame(Bytes payload) {
    constexpr uint8_t kType = 0x07;
    return payload.size() > 4 && (payload[2] & kType) == 1 && IsSet(payload[2], 4);
}

// ISO/IEC 13818-2, 6.2.2.1: two sides of 12 bits behind the sequence's start code.
std::optional<PictureFormat> PictureInMpv(Bytes payload) {
    constexpr uint8_t kSequence[] = {0x00, 0x00, 0x01, 0xb3};
    const auto found = std::search(payload.begin(), payload.end(), std::begin(kSequence), std::end(kSequence));
    if (payload.end() - found < 7) return std::nullopt;
    return PictureFormat{"", "", uint32_t{found[4]} << 4 | found[5] >> 4, (found[5] & 0x0fU) << 8 | found[6]};
}

std::optional<PictureFormat> PictureInJpeg(Bytes payload) {
    constexpr std::size_t kHeaderBytes = 8; // RFC 2435, 3.1: the last two are the size in units of 8
    if (payload.size() < kHeaderBytes || payload[6] == 0) return std::nullopt;
    return PictureFormat{"", "", payload[6] * 8U, payload[7] * 8U};
}

// What is seen of a codec's pictures without decoding them; functions may be null.
struct Look {
    int32_t codecType;
    bool (*beginsKeyFrame)(Bytes payload);
    Bytes (*findSet)(Bytes payload);
    std::optional<PictureFormat> (*picture)(Bytes payload);
};

constexpr Look kLooks[] = {
    {RTP_CODEC_H264, [](Bytes payload) { return BeginsKeyNal(kH264, payload); },
     [](Bytes payload) { return FindSet(kH264, payload); },
     [](Bytes payload) { return ParseH264Set(FindSet(kH264, payload)); }},
    {RTSPTAP_CODEC_H265, [](Bytes payload) { return BeginsKeyNal(kH265, payload); },
     [](Bytes payload) { return FindSet(kH265, payload); },
     [](Bytes payload) { return ParseH265Set(FindSet(kH265, payload)); }},
    {RTP_CODEC_MP4V_ES, BeginsMpeg4KeyFrame, nullptr, nullptr},
    {RTP_CODEC_JPEG, [](Bytes payload) { return !payload.empty(); }, nullptr, PictureInJpeg},
    {RTSPTAP_CODEC_VP8, BeginsVp8KeyFrame, nullptr, PictureInVp8},
    {RTSPTAP_CODEC_VP9, BeginsVp9KeyFrame, nullptr, PictureInVp9},
    {RTSPTAP_CODEC_AV1, BeginsAv1KeyFrame, nullptr, nullptr},
    {RTSPTAP_CODEC_MPV, BeginsMpvKeyFrame, nullptr, PictureInMpv},
};

const Look &LookOf(int32_t codecType) {
    static constexpr Look kBlind = {};
    const auto *const found = std::find_if(std::begin(kLooks), std::end(kLooks),
                                           [codecType](const Look &look) { return look.codecType == codecType; });
    return found == std::end(kLooks) ? kBlind : *found;
}

} // namespace

std::span<const uint8_t> PayloadOf(const RTPStreamData &packet) {
    const auto before = static_cast<std::size_t>(packet.payload - packet.packetData);
    if (packet.payload < packet.packetData || before > packet.packetLength) return {};
    if (packet.payloadLength > packet.packetLength - before) return {};
    return {packet.payload, packet.payloadLength};
}

bool BeginsKeyFrame(int32_t codecType, std::span<const uint8_t> payload) {
    const Look &look = LookOf(codecType);
    return look.beginsKeyFrame != nullptr && look.beginsKeyFrame(payload);
}

bool HasParameterSets(int32_t codecType, std::span<const uint8_t> payload) {
    const Look &look = LookOf(codecType);
    return look.findSet != nullptr && !look.findSet(payload).empty();
}

std::optional<PictureFormat> PictureIn(int32_t codecType, std::span<const uint8_t> payload) {
    const Look &look = LookOf(codecType);
    return look.picture != nullptr ? look.picture(payload) : std::nullopt;
}

} // namespace tool
