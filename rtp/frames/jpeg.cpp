// JPEG (RFC 2435): the packets bring the scan and what is needed to make the headers that are left out.
#include "platform/wire.h"
#include "rtp/frames/payloads.h"

#include <algorithm>
#include <array>

namespace rtsptap {
namespace {

// ---- tables that are not sent (ITU-T T.81, annex K) ----

constexpr std::size_t kTableBytes = 64;
using QuantizationTable = std::array<uint8_t, kTableBytes>;

// In zigzag order, as headers have them.
constexpr QuantizationTable kLuminance = {16, 11, 12,  14,  12,  10, 16, 14,  13,  14,  18,  17,  16, 19,  24,  40,
                                          26, 24, 22,  22,  24,  49, 35, 37,  29,  40,  58,  51,  61, 60,  57,  51,
                                          56, 55, 64,  72,  92,  78, 64, 68,  87,  69,  55,  56,  80, 109, 81,  87,
                                          95, 98, 103, 104, 103, 62, 77, 113, 121, 112, 100, 120, 92, 101, 103, 99};
constexpr QuantizationTable kChrominance = {17, 18, 18, 24, 21, 24, 47, 26, 26, 47, 99, 66, 56, 66, 99, 99,
                                            99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
                                            99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
                                            99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};

// Codes of each length, then their values, behind class and number.
constexpr uint8_t kHuffmanTables[] = {
    // luminance, DC
    0x00, 0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11,
    // luminance, AC
    0x10, 0, 2, 1, 3, 3, 2, 4, 3, 5, 5, 4, 4, 0, 0, 1, 0x7d, 0x01, 0x02, 0x03, 0x00, 0x04, 0x11, 0x05, 0x12, 0x21,
    0x31, 0x41, 0x06, 0x13, 0x51, 0x61, 0x07, 0x22, 0x71, 0x14, 0x32, 0x81, 0x91, 0xa1, 0x08, 0x23, 0x42, 0xb1,
    0xc1, 0x15, 0x52, 0xd1, 0xf0, 0x24, 0x33, 0x62, 0x72, 0x82, 0x09, 0x0a, 0x16, 0x17, 0x18, 0x19, 0x1a, 0x25,
    0x26, 0x27, 0x28, 0x29, 0x2a, 0x34, 0x35, 0x36, 0x37, 0x38, 0x39, 0x3a, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48,
    0x49, 0x4a, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59, 0x5a, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6a,
    0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7a, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8a, 0x92, 0x93,
    0x94, 0x95, 0x96, 0x97, 0x98, 0x99, 0x9a, 0xa2, 0xa3, 0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa, 0xb2, 0xb3,
    0xb4, 0xb5, 0xb6, 0xb7, 0xb8, 0xb9, 0xba, 0xc2, 0xc3, 0xc4, 0xc5, 0xc6, 0xc7, 0xc8, 0xc9, 0xca, 0xd2, 0xd3,
    0xd4, 0xd5, 0xd6, 0xd7, 0xd8, 0xd9, 0xda, 0xe1, 0xe2, 0xe3, 0xe4, 0xe5, 0xe6, 0xe7, 0xe8, 0xe9, 0xea, 0xf1,
    0xf2, 0xf3, 0xf4, 0xf5, 0xf6, 0xf7, 0xf8, 0xf9, 0xfa,
    // chrominance, DC
    0x01, 0, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11,
    // chrominance, AC
    0x11, 0, 2, 1, 2, 4, 4, 3, 4, 7, 5, 4, 4, 0, 1, 2, 0x77, 0x00, 0x01, 0x02, 0x03, 0x11, 0x04, 0x05, 0x21, 0x31,
    0x06, 0x12, 0x41, 0x51, 0x07, 0x61, 0x71, 0x13, 0x22, 0x32, 0x81, 0x08, 0x14, 0x42, 0x91, 0xa1, 0xb1, 0xc1,
    0x09, 0x23, 0x33, 0x52, 0xf0, 0x15, 0x62, 0x72, 0xd1, 0x0a, 0x16, 0x24, 0x34, 0xe1, 0x25, 0xf1, 0x17, 0x18,
    0x19, 0x1a, 0x26, 0x27, 0x28, 0x29, 0x2a, 0x35, 0x36, 0x37, 0x38, 0x39, 0x3a, 0x43, 0x44, 0x45, 0x46, 0x47,
    0x48, 0x49, 0x4a, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59, 0x5a, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69,
    0x6a, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7a, 0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8a,
    0x92, 0x93, 0x94, 0x95, 0x96, 0x97, 0x98, 0x99, 0x9a, 0xa2, 0xa3, 0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa,
    0xb2, 0xb3, 0xb4, 0xb5, 0xb6, 0xb7, 0xb8, 0xb9, 0xba, 0xc2, 0xc3, 0xc4, 0xc5, 0xc6, 0xc7, 0xc8, 0xc9, 0xca,
    0xd2, 0xd3, 0xd4, 0xd5, 0xd6, 0xd7, 0xd8, 0xd9, 0xda, 0xe2, 0xe3, 0xe4, 0xe5, 0xe6, 0xe7, 0xe8, 0xe9, 0xea,
    0xf2, 0xf3, 0xf4, 0xf5, 0xf6, 0xf7, 0xf8, 0xf9, 0xfa};

// A table for a quality of 1 to 99 (RFC 2435, 4.2).
QuantizationTable Scaled(const QuantizationTable &table, int quality) {
    const int scale = quality < 50 ? 5000 / quality : 200 - quality * 2;
    QuantizationTable scaled;
    std::ranges::transform(table, scaled.begin(), [scale](int value) {
        return static_cast<uint8_t>(std::clamp((value * scale + 50) / 100, 1, 255));
    });
    return scaled;
}

// ---- what a packet says (RFC 2435, 3.1) ----

struct Header {
    uint32_t offset = 0; // of the bytes in the scan
    uint8_t type = 0;
    uint8_t quality = 0;
    uint32_t width = 0; // pixels
    uint32_t height = 0;
    uint16_t restartInterval = 0; // 0: none
    Bytes tables;                 // quantization tables that came along
    bool hasWideTables = false;   // of 16 bits a value
    Bytes scan;
};

constexpr uint8_t kFirstWithRestarts = 64;
constexpr uint8_t kFirstOwnTables = 128;

bool TakeTables(Header &header) {
    constexpr std::size_t kHeaderBytes = 4;
    if (header.scan.size() < kHeaderBytes) return false;
    const std::size_t size = wire::U16(header.scan.data() + 2);
    header.hasWideTables = header.scan[1] != 0;
    if (size > header.scan.size() - kHeaderBytes) return false;
    header.tables = header.scan.subspan(kHeaderBytes, size);
    header.scan = header.scan.subspan(kHeaderBytes + size);
    return true;
}

bool ReadHeader(Bytes payload, Header &header) {
    constexpr std::size_t kHeaderBytes = 8;
    constexpr std::size_t kRestartBytes = 4;
    constexpr uint32_t kBlock = 8;
    if (payload.size() < kHeaderBytes) return false;
    header.offset = wire::U32(payload.data()) & 0xffffff;
    header.type = payload[4];
    header.quality = payload[5];
    header.width = payload[6] * kBlock;
    header.height = payload[7] * kBlock;
    header.scan = payload.subspan(kHeaderBytes);
    if (header.type >= kFirstWithRestarts) {
        if (header.scan.size() < kRestartBytes) return false;
        header.restartInterval = wire::U16(header.scan.data());
        header.scan = header.scan.subspan(kRestartBytes);
    }
    const bool isKnown = (header.type & ~kFirstWithRestarts) <= 1 && header.width != 0 && header.height != 0;
    if (!isKnown || header.quality == 0) return false;
    return header.quality < kFirstOwnTables || header.offset != 0 || TakeTables(header);
}

// ---- the headers of the file ----

void AppendMarker(Assembly &assembly, uint8_t marker, std::size_t size) {
    const std::size_t whole = size + 2; // counts itself
    const uint8_t segment[] = {0xff, marker, static_cast<uint8_t>(whole >> 8), static_cast<uint8_t>(whole)};
    Append(assembly, segment);
}

void AppendTable(Assembly &assembly, uint8_t number, bool isWide, Bytes table) {
    AppendMarker(assembly, 0xdb, 1 + table.size());
    Append(assembly, static_cast<uint8_t>((isWide ? 0x10 : 0) | number));
    Append(assembly, table);
}

// Two tables, or one for both. False when none are known for this quality.
bool AppendTables(Assembly &assembly, const Header &header) {
    if (header.quality < kFirstOwnTables) {
        const int quality = std::min<int>(header.quality, 99);
        AppendTable(assembly, 0, false, Scaled(kLuminance, quality));
        AppendTable(assembly, 1, false, Scaled(kChrominance, quality));
        return true;
    }
    JpegTables &kept = assembly.jpegTables;
    if (!header.tables.empty())
        kept = {header.quality, header.hasWideTables, {header.tables.begin(), header.tables.end()}};
    const std::size_t size = kTableBytes * (kept.areWide ? 2 : 1);
    if (kept.quality != header.quality || kept.bytes.size() < size) return false;
    const Bytes tables = kept.bytes;
    AppendTable(assembly, 0, kept.areWide, tables.first(size));
    AppendTable(assembly, 1, kept.areWide,
                tables.size() >= 2 * size ? tables.subspan(size, size) : tables.first(size));
    return true;
}

bool AppendHeaders(Assembly &assembly, const Header &header) {
    constexpr uint8_t kStartOfImage[] = {0xff, 0xd8};
    Append(assembly, kStartOfImage);
    if (!AppendTables(assembly, header)) return false;
    if (header.restartInterval != 0) {
        const uint8_t interval[] = {static_cast<uint8_t>(header.restartInterval >> 8),
                                    static_cast<uint8_t>(header.restartInterval)};
        AppendMarker(assembly, 0xdd, sizeof interval);
        Append(assembly, interval);
    }
    const bool isHalfHeight = (header.type & 1) != 0; // of colors; their width is halved in both types
    const uint8_t frame[] = {8,
                             static_cast<uint8_t>(header.height >> 8),
                             static_cast<uint8_t>(header.height),
                             static_cast<uint8_t>(header.width >> 8),
                             static_cast<uint8_t>(header.width),
                             3,
                             1,
                             static_cast<uint8_t>(isHalfHeight ? 0x22 : 0x21),
                             0,
                             2,
                             0x11,
                             1,
                             3,
                             0x11,
                             1};
    AppendMarker(assembly, 0xc0, sizeof frame);
    Append(assembly, frame);
    AppendMarker(assembly, 0xc4, sizeof kHuffmanTables);
    Append(assembly, kHuffmanTables);
    constexpr uint8_t kScan[] = {3, 1, 0x00, 2, 0x11, 3, 0x11, 0, 63, 0};
    AppendMarker(assembly, 0xda, sizeof kScan);
    Append(assembly, kScan);
    return true;
}

} // namespace

void AddJpeg(Assembly &assembly, const Packet &packet) {
    constexpr uint8_t kEndOfImage[] = {0xff, 0xd9};
    Header header;
    if (!ReadHeader(packet.payload, header)) return MarkDamaged(assembly);
    const bool isEmpty = assembly.bytes.size() == assembly.current.begin;
    if (isEmpty && header.offset != 0) return; // without its headers nothing can be made of it
    if (isEmpty && !AppendHeaders(assembly, header)) return CutBack(assembly, assembly.current.begin);
    if (header.offset != assembly.jpegExpected) MarkDamaged(assembly);
    MarkKey(assembly);
    Append(assembly, header.scan);
    assembly.jpegExpected = header.offset + header.scan.size();
    const bool hasEnd = header.scan.size() >= 2 && std::ranges::equal(header.scan.last(2), kEndOfImage);
    if (packet.isMarked && !hasEnd) Append(assembly, kEndOfImage);
}

} // namespace rtsptap
