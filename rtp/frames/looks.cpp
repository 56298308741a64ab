// What is seen of a codec's pictures without decoding them: where key frames begin, parameter sets, the size. One
// row a codec.
#include "platform/printers.h"
#include "platform/wire.h"
#include "rtp/codec_bits.h"
#include "rtp/frames/parameter_sets.h"
#include "rtp/frames/payloads.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace rtsptap {
namespace {

// What begins with a start code; empty without it.
template <std::size_t size> Bytes From(Bytes payload, const uint8_t (&code)[size]) {
    const auto found = std::search(payload.begin(), payload.end(), std::begin(code), std::end(code));
    return payload.subspan(static_cast<std::size_t>(found - payload.begin()));
}

bool IsSet(uint8_t byte, int bit) { return (byte >> bit & 1) != 0; }

void TellSize(RTSPTapVideoFormat &format, uint32_t width, uint32_t height) {
    if (width == 0 || height == 0) return;
    format.width = static_cast<int32_t>(width);
    format.height = static_cast<int32_t>(height);
}

// ---- NAL units ----

// How a codec packs them: its types and where they stand (RFC 6184, 5.2; RFC 7798, 4.4).
struct NalRules {
    std::size_t headerBytes;
    int32_t (*typeOf)(uint8_t first);
    int32_t aggregate;
    int32_t oddAggregate; // with two bytes of order in front; none: -1
    int32_t fragment;
    int32_t oddFragment;
    uint8_t fragmentTypes; // bits of the type behind a fragment's header
    int32_t set;           // the sequence parameter set
    bool (*readSet)(Bytes unit, RTSPTapVideoFormat &format);
    bool (*isKey)(int32_t type);
};

constexpr NalRules kH264 = {
    1, NalTypeOfH264, 24, 25, 28, 29, 0x1f, 7, ReadH264Set, [](int32_t type) { return type == 5 || type == 7; }};

constexpr NalRules kH265 = {
    2,           NalTypeOfH265,
    48,          -1,
    49,          -1,
    0x3f,        33,
    ReadH265Set, [](int32_t type) { return (type >= 16 && type <= 23) || type == 32 || type == 33; }};

void LookAtUnit(const NalRules &rules, Bytes unit, RTSPTapVideoFormat &format) {
    if (unit.size() < rules.headerBytes) return;
    const int32_t type = rules.typeOf(unit[0]);
    if (rules.isKey(type)) format.isKey = 1;
    if (type != rules.set) return;
    format.hasParameterSets = 1;
    rules.readSet(unit, format);
}

void LookAtNals(const NalRules &rules, Bytes payload, RTSPTapVideoFormat &format) {
    if (payload.size() <= rules.headerBytes) return;
    const int32_t type = rules.typeOf(payload[0]);
    if (type == rules.fragment || type == rules.oddFragment) {
        const uint8_t behind = payload[rules.headerBytes];
        if (IsSet(behind, 7) && rules.isKey(behind & rules.fragmentTypes)) format.isKey = 1;
        return;
    }
    if (type < rules.aggregate) return LookAtUnit(rules, payload, format);
    if (type != rules.aggregate && type != rules.oddAggregate) return;
    const std::size_t before = rules.headerBytes + (type == rules.oddAggregate ? 2 : 0);
    Bytes units = payload.subspan(std::min(before, payload.size()));
    for (Bytes unit; TakeNalUnit(units, 0, unit);) LookAtUnit(rules, unit, format);
}

// ---- others ----

// A picture's start code, and in the two bits behind it 0 for intra (ISO/IEC 14496-2, 6.2.5).
void LookAtMpeg4(Bytes payload, RTSPTapVideoFormat &format) {
    constexpr uint8_t kPicture[] = {0x00, 0x00, 0x01, 0xb6};
    const Bytes picture = From(payload, kPicture);
    if (picture.size() > 4 && (picture[4] & 0xc0) == 0) format.isKey = 1;
}

// Every picture stands alone; the last two bytes of the header are the size in units of 8 (RFC 2435, 3.1).
void LookAtJpeg(Bytes payload, RTSPTapVideoFormat &format) {
    constexpr std::size_t kHeaderBytes = 8;
    if (payload.empty()) return;
    format.isKey = 1;
    if (payload.size() >= kHeaderBytes) TellSize(format, payload[6] * 8U, payload[7] * 8U);
}

// RFC 6386, 9.1: behind a start code two sides of 14 bits, the lower byte first.
void LookAtVp8(Bytes payload, RTSPTapVideoFormat &format) {
    constexpr std::size_t kHeaderBytes = 10;
    const Vp8Part part = FindVp8Part(payload);
    if (!part.isFirst || part.bytes.empty() || IsSet(part.bytes[0], 0)) return;
    format.isKey = 1;
    if (part.bytes.size() < kHeaderBytes) return;
    const auto side = [&part](std::size_t at) {
        return (part.bytes[at] | uint32_t{part.bytes[at + 1]} << 8) & 0x3fff;
    };
    TellSize(format, side(6), side(8));
}

// RFC 9628, 4.2: a frame begins that refers to none; in the scalability structure, of its layers the largest.
void LookAtVp9(Bytes payload, RTSPTapVideoFormat &format) {
    const wire::ReceivedBytes bytes(payload);
    const uint8_t first = bytes.U8(0);
    const bool isFlexible = IsSet(first, 4);
    if (!payload.empty() && !IsSet(first, 6) && IsSet(first, 3)) format.isKey = 1;
    std::size_t at = 1;
    if (IsSet(first, 7)) at += IsSet(bytes.U8(at), 7) ? 2 : 1; // number of the picture
    if (IsSet(first, 5)) at += isFlexible ? 1 : 2;             // layers
    for (int left = 3; isFlexible && IsSet(first, 6) && left > 0; --left)
        if (!IsSet(bytes.U8(at++), 0)) break; // pictures referred to
    const uint8_t structure = IsSet(first, 1) ? bytes.U8(at) : uint8_t{0};
    const std::size_t largest = at + 1 + std::size_t{4} * (structure >> 5);
    if (IsSet(structure, 4) && largest + 4 <= bytes.Size())
        TellSize(format, bytes.U16(largest), bytes.U16(largest + 2));
}

// "A coded video sequence begins", of the aggregation header.
void LookAtAv1(Bytes payload, RTSPTapVideoFormat &format) {
    if (!payload.empty() && IsSet(payload[0], 3)) format.isKey = 1;
}

// The type of the picture, 1 for intra, where its beginning is there (RFC 2250, 3.4); two sides of 12 bits behind
// the sequence's start code (ISO/IEC 13818-2, 6.2.2.1).
void LookAtMpv(Bytes payload, RTSPTapVideoFormat &format) {
    constexpr uint8_t kSequence[] = {0x00, 0x00, 0x01, 0xb3};
    if (payload.size() > 4 && (payload[2] & 7) == 1 && IsSet(payload[2], 4)) format.isKey = 1;
    const Bytes at = From(payload, kSequence);
    if (at.size() >= 7) TellSize(format, uint32_t{at[4]} << 4 | at[5] >> 4, (at[5] & 0x0fU) << 8 | at[6]);
}

// ---- rows ----

struct Look {
    int32_t codecType;
    void (*at)(Bytes payload, RTSPTapVideoFormat &format); // notes what is told, and leaves the rest
};

constexpr Look kLooks[] = {
    {RTP_CODEC_H264, [](Bytes payload, RTSPTapVideoFormat &format) { LookAtNals(kH264, payload, format); }},
    {RTSPTAP_CODEC_H265, [](Bytes payload, RTSPTapVideoFormat &format) { LookAtNals(kH265, payload, format); }},
    {RTP_CODEC_MP4V_ES, LookAtMpeg4},
    {RTP_CODEC_JPEG, LookAtJpeg},
    {RTSPTAP_CODEC_VP8, LookAtVp8},
    {RTSPTAP_CODEC_VP9, LookAtVp9},
    {RTSPTAP_CODEC_AV1, LookAtAv1},
    {RTSPTAP_CODEC_MPV, LookAtMpv},
};

// Nothing is seen of other codecs.
void LookAt(int32_t codecType, Bytes payload, RTSPTapVideoFormat &format) {
    const auto *const found = std::ranges::find(kLooks, codecType, &Look::codecType);
    if (found != std::end(kLooks)) found->at(payload, format);
}

bool CanBeFilled(const RTSPTapVideoFormat *format) {
    return format != nullptr && format->recordSize >= sizeof format->recordSize;
}

int32_t Tell(RTSPTapVideoFormat told, RTSPTapVideoFormat *format) {
    const bool isAnything = told.isKey != 0 || told.hasParameterSets != 0 || told.width != 0 || told.frameRate > 0;
    told.recordSize = format->recordSize;
    std::memcpy(format, &told, std::min<std::size_t>(told.recordSize, sizeof told));
    return isAnything ? RTSP_SUCCESS : RTSP_FAILURE;
}

} // namespace
} // namespace rtsptap

using namespace rtsptap;

int32_t RTSPTapGetVideoFormat(const RTSPTapStreamDescription *description, RTSPTapVideoFormat *format) {
    const CallTrace trace(__func__);
    if (description == nullptr || description->recordSize < sizeof *description || !CanBeFilled(format))
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    RTSPTapVideoFormat told = {};
    if (description->sps != nullptr && description->spsSize > 0)
        LookAt(description->codecType, {description->sps, static_cast<std::size_t>(description->spsSize)}, told);
    if (told.frameRate <= 0) told.frameRate = description->frameRate;
    return Tell(told, format);
}

int32_t RTSPTapLookIntoPacket(int32_t codecType, const RTPStreamData *packet, RTSPTapVideoFormat *format) {
    Bytes payload;
    const bool isReadable = packet != nullptr && FindPayload(*packet, payload);
    if (!isReadable || !CanBeFilled(format)) {
        const CallTrace trace(__func__);
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    }
    RTSPTapVideoFormat told = {};
    LookAt(codecType, payload, told);
    return Tell(told, format);
}
