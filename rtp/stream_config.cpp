#include "rtp/stream_config.h"

#include "platform/wire.h"
#include "rtp/codec_bits.h"
#include "rtp/media_session.h"
#include "rtp/stream.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <utility>

namespace rtsptap {
namespace {

using Bytes = std::span<const uint8_t>;

constexpr uint8_t BitOf(ConfigKind kind) { return static_cast<uint8_t>(1U << static_cast<unsigned>(kind)); }

bool IsMissing(const RTSPStreamInfo &stream, ConfigKind kind) {
    return (stream.configSearch.missing.load(std::memory_order_relaxed) & BitOf(kind)) != 0;
}

// Keeps a copy for whoever asks. When memory is short the next one is looked for.
void Publish(RTSPStreamInfo &stream, ConfigKind kind, Bytes config) {
    ConfigSearch &search = stream.configSearch;
    if (!IsMissing(stream, kind) || config.empty() || config.size() > kLongestConfig) return;
    std::unique_ptr<uint8_t[], FreeDeleter> copy(static_cast<uint8_t *>(malloc(config.size())));
    if (!copy) return;
    memcpy(copy.get(), config.data(), config.size());
    search.configs[static_cast<std::size_t>(kind)] = {std::move(copy), config.size()};
    search.found.fetch_or(BitOf(kind), std::memory_order_release);
    search.missing.fetch_and(static_cast<uint8_t>(~BitOf(kind)), std::memory_order_relaxed);
    (void)stream.session->dialect.Permits(Rule::kConfigInStream);
}

// ---- NAL units ----

// How a codec's units come in packets: RFC 6184, 5.2, and RFC 7798, 4.4.
struct UnitFormat {
    int32_t (*typeOf)(uint8_t first);
    std::size_t headerBytes; // of a unit
    int32_t aggregate;       // type of a packet of several units, each behind its size
    int32_t fragment;        // type of a packet with a part of one
    int32_t lastPicture;     // highest type of those that carry pictures
    struct {
        int32_t type;
        ConfigKind kind;
    } sets[3];
};

constexpr UnitFormat kH264Units = {
    NalTypeOfH264, 1, 24, 28, 5, {{7, ConfigKind::kSps}, {8, ConfigKind::kPps}, {-1, ConfigKind::kVps}}};
constexpr UnitFormat kH265Units = {
    NalTypeOfH265, 2, 48, 49, 31, {{32, ConfigKind::kVps}, {33, ConfigKind::kSps}, {34, ConfigKind::kPps}}};

bool IsH264(const UnitFormat &format) { return format.headerBytes == 1; }

// Streams that are encrypted have units of all types: of a set's header every other bit is known, too. In H.264
// others refer to it; in H.265 it is of layer 0 and sublayer 0.
bool IsSet(const UnitFormat &format, Bytes unit) {
    constexpr std::size_t kShortest = 3;
    if (unit.size() < kShortest || (unit[0] & 0x80) != 0) return false;
    return IsH264(format) ? (unit[0] & 0x60) != 0 : (unit[0] & 1) == 0 && unit[1] == 1;
}

// The kind that units of the type are, when it is missing.
std::optional<ConfigKind> MissingKind(const RTSPStreamInfo &stream, const UnitFormat &format, uint8_t first) {
    for (const auto &set : format.sets)
        if (set.type == format.typeOf(first) && IsMissing(stream, set.kind)) return set.kind;
    return std::nullopt;
}

void TakeUnit(RTSPStreamInfo &stream, const UnitFormat &format, Bytes unit) {
    if (!IsSet(format, unit)) return;
    if (const auto kind = MissingKind(stream, format, unit[0])) Publish(stream, *kind, unit);
}

// Some devices put several units of a byte stream where one belongs.
void TakeUnits(RTSPStreamInfo &stream, const UnitFormat &format, Bytes bytes, bool lastIsWhole = true) {
    while (!bytes.empty()) {
        const Bytes unit = NextNalUnit(bytes);
        if (!bytes.empty() || lastIsWhole) TakeUnit(stream, format, unit);
    }
}

void TakeAggregate(RTSPStreamInfo &stream, const UnitFormat &format, Bytes packet) {
    Bytes rest = packet.subspan(format.headerBytes);
    while (rest.size() > 2) {
        const std::size_t size = wire::U16(rest.data());
        rest = rest.subspan(2);
        if (size > rest.size()) return;
        TakeUnits(stream, format, rest.first(size));
        rest = rest.subspan(size);
    }
}

// Behind the packet's header: S | E | R | type of the unit (RFC 6184, 5.8) or S | E | type (RFC 7798, 4.4.3).
constexpr uint8_t kFirstPiece = 0x80;
constexpr uint8_t kLastPiece = 0x40;

// The header that the unit would have.
std::array<uint8_t, 2> HeaderOfUnit(const UnitFormat &format, Bytes packet) {
    const uint8_t type = packet[format.headerBytes];
    if (IsH264(format)) return {static_cast<uint8_t>((packet[0] & 0xE0) | (type & 0x1F)), 0};
    return {static_cast<uint8_t>((packet[0] & 0x81) | (type & 0x3F) << 1), packet[1]};
}

void BeginPieces(RTSPStreamInfo &stream, const UnitFormat &format, Bytes packet) {
    std::unique_ptr<UnitInPieces> &pieces = stream.configSearch.pieces;
    const auto header = HeaderOfUnit(format, packet);
    const bool isWanted = MissingKind(stream, format, header[0]).has_value();
    if (pieces == nullptr && isWanted) pieces.reset(new (std::nothrow) UnitInPieces);
    if (pieces == nullptr) return;
    std::ranges::copy(header, pieces->bytes.begin());
    pieces->size = isWanted ? format.headerBytes : 0;
}

// A piece that was lost, or came late, ends the unit. So does one too many: what is whole by then is taken.
void TakePiece(RTSPStreamInfo &stream, const UnitFormat &format, Bytes packet, uint16_t number) {
    const uint8_t header = packet[format.headerBytes];
    const bool isFirst = (header & kFirstPiece) != 0;
    if (isFirst) BeginPieces(stream, format, packet);
    UnitInPieces *const pieces = stream.configSearch.pieces.get();
    if (pieces == nullptr || pieces->size == 0) return;
    if (!isFirst && number != pieces->nextNumber) {
        pieces->size = 0;
        return;
    }
    const Bytes piece = packet.subspan(format.headerBytes + 1);
    const Bytes fitting = piece.first(std::min(piece.size(), pieces->bytes.size() - pieces->size));
    std::ranges::copy(fitting, std::span(pieces->bytes).subspan(pieces->size).begin());
    pieces->size += fitting.size();
    pieces->nextNumber = static_cast<uint16_t>(number + 1);
    const bool isWhole = fitting.size() == piece.size();
    if (isWhole && (header & kLastPiece) == 0) return;
    TakeUnits(stream, format, Bytes(pieces->bytes).first(pieces->size), isWhole);
    pieces->size = 0;
}

// In packets of pictures alone there is nothing to find.
void SearchUnits(RTSPStreamInfo &stream, const UnitFormat &format, Bytes packet, uint16_t number) {
    if (packet.size() <= format.headerBytes) return;
    const int32_t type = format.typeOf(packet[0]);
    const bool beginsWithStartCode = packet[0] == 0 && packet[1] == 0;
    if (type == format.aggregate)
        TakeAggregate(stream, format, packet);
    else if (type == format.fragment)
        TakePiece(stream, format, packet, number);
    else if (type > format.lastPicture || beginsWithStartCode)
        TakeUnits(stream, format, packet);
}

// ---- MPEG-4 ----

// ADTS header (ISO 14496-3, 1.A.2.2): sync (12) | ID | layer (2) | no CRC | profile (2) | rate (4) | private |
// channels (3) | 4 | length (13), header included | 13. It says what an AudioSpecificConfig of two bytes does.
void TakeAdts(RTSPStreamInfo &stream, Bytes frame) {
    constexpr std::size_t kHeaderBytes = 7;
    constexpr unsigned kRates = 13;
    if (frame.size() < kHeaderBytes || frame[0] != 0xFF || (frame[1] & 0xF6) != 0xF0) return;
    const unsigned objectType = (frame[2] >> 6) + 1U;
    const unsigned rate = frame[2] >> 2 & 0xFU;
    const unsigned channels = (frame[2] & 1U) << 2 | frame[3] >> 6;
    const std::size_t length = (frame[3] & 3U) << 11 | frame[4] * 8U | frame[5] >> 5U;
    if (rate >= kRates || channels == 0 || length < kHeaderBytes || length > frame.size()) return;
    uint8_t config[2];
    wire::PutU16(config, objectType << 11 | rate << 7 | channels << 3);
    Publish(stream, ConfigKind::kConfig, config);
}

// An access unit stands behind the bits of its headers and their number (RFC 3640, 3.2), or alone.
void SearchAudioFrame(RTSPStreamInfo &stream, Bytes packet) {
    if (packet.size() < 2) return;
    const std::size_t headers = 2 + (wire::U16(packet.data()) + 7U) / 8;
    if (headers < packet.size()) TakeAdts(stream, packet.subspan(headers));
    TakeAdts(stream, packet);
}

// LatmGetValue (ISO 14496-3, 1.7.3): size in bytes less one (2) | number.
bool TakeLatmValue(BitReader &bits, int32_t &value) {
    int32_t more = 0;
    return bits.Take(2, more) && bits.Take(8 * (static_cast<unsigned>(more) + 1), value) && value >= 0;
}

// Of plain AAC only. Its own part: frame length | core coder, with a delay (14) | extension.
bool TakeAacConfig(BitReader &bits) {
    constexpr int32_t kLastPlain = 4; // AAC Main, LC, SSR, LTP
    AudioConfig config;
    int32_t flag = 0;
    return TakeAudioConfig(bits, config) && config.objectType >= 1 && config.objectType <= kLastPlain &&
           config.channels > 0 && bits.Skip(1) && bits.Take(1, flag) && (flag == 0 || bits.Skip(14)) &&
           bits.Take(1, flag) && flag == 0;
}

// In version 1 its length stands before it.
bool TakeLayerConfig(BitReader &bits, int32_t version) {
    if (version == 0) return TakeAacConfig(bits);
    int32_t length = 0;
    if (!TakeLatmValue(bits, length)) return false;
    BitReader config = bits;
    return TakeAacConfig(config) && bits.Skip(static_cast<std::size_t>(length));
}

// other data or none | in version 1 its length, else pieces of it: goes on | 8
bool TakeOtherLength(BitReader &bits, int32_t version) {
    int32_t goesOn = 0;
    int32_t length = 0;
    if (!bits.Take(1, goesOn)) return false;
    if (goesOn != 0 && version != 0) return TakeLatmValue(bits, length);
    while (goesOn != 0)
        if (!bits.Take(1, goesOn) || !bits.Skip(8)) return false;
    return true;
}

// StreamMuxConfig of one program with one layer, which is what RTP carries (RFC 6416, 6.1):
//  version | in version 1: 0, buffer fullness | same framing | subframes (6) | programs (4) | layers (3) |
//  layer's configuration | kind of length (3), 8 or 9 bits of it | other data | check sum, 8 bits, or none
bool TakeMuxConfig(BitReader &bits) {
    int32_t version = 0;
    int32_t value = 0;
    if (!bits.Take(1, version)) return false;
    if (version != 0 && (!bits.Take(1, value) || value != 0 || !TakeLatmValue(bits, value))) return false;
    if (!bits.Skip(1 + 6) || !bits.Take(4 + 3, value) || value != 0) return false;
    if (!TakeLayerConfig(bits, version)) return false;
    if (!bits.Take(3, value) || value > 1 || !bits.Skip(value == 0 ? 8 : 9)) return false;
    return TakeOtherLength(bits, version) && bits.Take(1, value) && (value == 0 || bits.Skip(8));
}

// AudioMuxElement: configured as the one before (1), or by what follows | ... One that lies in a packet of its own:
// the packet before it ended one, too.
void SearchAudioElement(RTSPStreamInfo &stream, Bytes packet, const RTPHeader &header) {
    constexpr std::size_t kLongestMuxConfig = 64; // bytes
    const int32_t next = header.marker != 0 ? (header.sequenceNumber + 1) & 0xFFFF : -1;
    const int32_t begins = std::exchange(stream.configSearch.elementNumber, next);
    if (next < 0 || begins != header.sequenceNumber || packet.empty() || (packet[0] & 0x80) != 0) return;
    const Bytes head = packet.first(std::min(packet.size(), kLongestMuxConfig));
    BitReader end(head);
    if (!end.Skip(1) || !TakeMuxConfig(end)) return;
    std::array<uint8_t, kLongestMuxConfig> config = {};
    BitReader bits(head);
    int32_t bit = 0;
    (void)bits.Skip(1);
    for (std::size_t at = 0; bits.Position() < end.Position() && bits.Take(1, bit); ++at)
        config[at / 8] |= static_cast<uint8_t>(bit << (7 - at % 8));
    Publish(stream, ConfigKind::kConfig, Bytes(config).first((end.Position() - 1 + 7) / 8));
}

// Headers, from that of the visual object sequence or a later one to that of the video object layer, stand before
// the first group of pictures or picture (ISO 14496-2, 6.2).
void SearchVideoHeaders(RTSPStreamInfo &stream, Bytes packet) {
    constexpr uint8_t kFirstLayer = 0x20;
    constexpr uint8_t kLastLayer = 0x2F;
    constexpr uint8_t kGroup = 0xB3;
    constexpr uint8_t kPicture = 0xB6;
    if (FindStartCode(packet) != 0) return;
    bool hasLayer = false;
    std::size_t at = 0;
    for (; packet.size() - at > kStartCodeBytes + 1; at += FindStartCode(packet.subspan(at))) {
        const uint8_t type = packet[at + kStartCodeBytes];
        if (type == kGroup || type == kPicture) break;
        hasLayer = hasLayer || (type >= kFirstLayer && type <= kLastLayer);
        at += kStartCodeBytes;
    }
    if (hasLayer) Publish(stream, ConfigKind::kConfig, packet.first(at));
}

// What has arrived of the payload: a packet's header may claim anything.
Bytes PayloadOf(const RTPStreamData &packet) {
    const Bytes bytes(packet.packetData, packet.packetLength);
    const auto offset = static_cast<std::size_t>(packet.payload - packet.packetData);
    if (offset > bytes.size() || packet.payloadLength > bytes.size() - offset) return {};
    return bytes.subspan(offset, packet.payloadLength);
}

uint8_t KindsOf(int32_t codecType) {
    switch (codecType) {
    case RTP_CODEC_H264:
        return BitOf(ConfigKind::kSps) | BitOf(ConfigKind::kPps);
    case RTSPTAP_CODEC_H265:
        return BitOf(ConfigKind::kVps) | BitOf(ConfigKind::kSps) | BitOf(ConfigKind::kPps);
    case RTP_CODEC_MPEG4_GENERIC:
    case RTSPTAP_CODEC_MP4A_LATM:
    case RTP_CODEC_MP4V_ES:
        return BitOf(ConfigKind::kConfig);
    default:
        return 0;
    }
}

} // namespace

void SearchMissingConfig(RTSPStreamInfo &stream) {
    const RTSPStreamDescription &is = stream.description;
    uint8_t described = 0;
    if (stream.further.vps != nullptr) described |= BitOf(ConfigKind::kVps);
    if (is.sps != nullptr) described |= BitOf(ConfigKind::kSps);
    if (is.pps != nullptr) described |= BitOf(ConfigKind::kPps);
    if (is.aacConfig != nullptr || stream.further.config != nullptr) described |= BitOf(ConfigKind::kConfig);
    stream.configSearch.payloadType = is.encodingName[0] != '\0' ? is.payloadNumber : -1;
    stream.configSearch.missing.store(static_cast<uint8_t>(KindsOf(is.codecType) & ~described),
                                      std::memory_order_release);
}

void SearchPacket(RTSPStreamInfo &stream, const RTPStreamData &packet) {
    const ConfigSearch &search = stream.configSearch;
    const RTPHeader &header = *packet.rtpHeader;
    if (search.missing.load(std::memory_order_acquire) == 0) return;
    if (search.payloadType >= 0 && header.payloadType != search.payloadType) return;
    const Bytes payload = PayloadOf(packet);
    switch (packet.codecType) {
    case RTP_CODEC_H264:
        return SearchUnits(stream, kH264Units, payload, header.sequenceNumber);
    case RTSPTAP_CODEC_H265:
        return SearchUnits(stream, kH265Units, payload, header.sequenceNumber);
    case RTP_CODEC_MPEG4_GENERIC:
        return SearchAudioFrame(stream, payload);
    case RTSPTAP_CODEC_MP4A_LATM:
        return SearchAudioElement(stream, payload, header);
    case RTP_CODEC_MP4V_ES:
        return SearchVideoHeaders(stream, payload);
    default:
        return;
    }
}

std::span<const uint8_t> FindConfig(const RTSPStreamInfo &stream, ConfigKind kind) {
    const ConfigSearch &search = stream.configSearch;
    if ((search.found.load(std::memory_order_acquire) & BitOf(kind)) == 0) return {};
    const ConfigBytes &config = search.configs[static_cast<std::size_t>(kind)];
    return {config.bytes.get(), config.size};
}

} // namespace rtsptap
