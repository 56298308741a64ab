#include "rtp/frames/payloads.h"

#include "platform/text.h"
#include "platform/wire.h"

#include <algorithm>
#include <iterator>

namespace rtsptap {
namespace {

constexpr PayloadFormat kFormats[] = {
    {RTP_CODEC_H264, AddH264, PrepareH264},
    {RTSPTAP_CODEC_H265, AddH265, PrepareH265},
    {RTP_CODEC_MPEG4_GENERIC, AddAac, PrepareAac},
    {RTP_CODEC_JPEG, AddJpeg},
    {RTSPTAP_CODEC_VP8, AddVp8},
    {RTSPTAP_CODEC_OPUS, AddWhole},
    {RTP_CODEC_PCMA, AddWhole},
    {RTP_CODEC_PCMU, AddWhole},
    {RTSPTAP_CODEC_G722, AddWhole},
    {RTSPTAP_CODEC_G723, AddWhole},
    {RTP_CODEC_G726, AddWhole},
    {RTSPTAP_CODEC_G729, AddWhole},
    {RTSPTAP_CODEC_GSM, AddWhole},
    {RTSPTAP_CODEC_SPEEX, AddWhole},
    {RTSPTAP_CODEC_L8, AddWhole},
    {RTP_CODEC_L16, AddWhole},
    {RTSPTAP_CODEC_L20, AddWhole},
    {RTSPTAP_CODEC_L24, AddWhole},
};

} // namespace

const PayloadFormat *FindPayloadFormat(int32_t codecType) {
    const auto *const found = std::ranges::find(kFormats, codecType, &PayloadFormat::codecType);
    return found != std::end(kFormats) ? found : nullptr;
}

std::string_view FormatParameter(const char *fmtp, std::string_view name) {
    std::string_view rest = fmtp != nullptr ? fmtp : "";
    while (!rest.empty()) {
        std::string_view value = rest.substr(0, rest.find(';'));
        rest.remove_prefix(std::min(value.size() + 1, rest.size()));
        std::string_view found;
        if (Until(value, '=', found) && EqualIgnoringCase(WithoutBlanks(found), name)) return WithoutBlanks(value);
    }
    return {};
}

int32_t FormatNumber(const char *fmtp, std::string_view name, int32_t byDefault) {
    const std::string_view value = FormatParameter(fmtp, name);
    return value.empty() ? byDefault : LeadingNumber(value);
}

void AddWhole(Assembly &assembly, const Packet &packet) {
    Append(assembly, packet.payload);
    MarkKey(assembly);
    FinishFrame(assembly);
}

// Behind a descriptor of 1 to 6 bytes.
Vp8Part FindVp8Part(Bytes payload) {
    constexpr uint8_t kExtended = 0x80;
    constexpr uint8_t kStart = 0x10;
    constexpr uint8_t kPartition = 0x0f;
    const wire::ReceivedBytes bytes(payload);
    const uint8_t first = bytes.U8(0);
    std::size_t header = 1;
    if ((first & kExtended) != 0) {
        const uint8_t has = bytes.U8(header++);
        if ((has & 0x80) != 0) header += (bytes.U8(header) & 0x80) != 0 ? 2 : 1; // picture number
        if ((has & 0x40) != 0) ++header;                                         // of the base layer
        if ((has & 0x30) != 0) ++header;                                         // layers, key index
    }
    return {payload.subspan(std::min(header, payload.size())), (first & kStart) != 0 && (first & kPartition) == 0};
}

// Part of the frame, whose first bit says whether it needs others.
void AddVp8(Assembly &assembly, const Packet &packet) {
    const Vp8Part part = FindVp8Part(packet.payload);
    if (part.bytes.empty()) return MarkDamaged(assembly);
    const bool isEmpty = assembly.current.begin == assembly.bytes.size();
    if (part.isFirst && isEmpty && (part.bytes[0] & 1) == 0) MarkKey(assembly);
    if (!part.isFirst && isEmpty) MarkDamaged(assembly);
    Append(assembly, part.bytes);
}

} // namespace rtsptap
