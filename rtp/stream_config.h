// What a decoder needs and a description may leave out, found in the packets of the stream itself: parameter sets
// of H.264 and H.265, headers of MPEG-4 video, configurations of AAC. Each is looked for until it has been found
// once; a stream that misses nothing costs one look at `missing` per packet.
#pragma once

#include "platform/text.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

struct RTPStreamData;

namespace rtsptap {

struct RTSPStreamInfo;

enum class ConfigKind : uint8_t { kVps, kSps, kPps, kConfig };
inline constexpr std::size_t kConfigKinds = 4;
inline constexpr std::size_t kLongestConfig = 4096; // bytes; what is longer is no configuration

// A NAL unit that comes in fragments.
struct UnitInPieces {
    std::array<uint8_t, kLongestConfig> bytes; // filled up to size
    std::size_t size = 0;                      // 0: none is under way
    uint16_t nextNumber = 0;                   // of the packet that goes on
};

struct ConfigBytes {
    std::unique_ptr<uint8_t[], FreeDeleter> bytes;
    std::size_t size = 0;
};

struct ConfigSearch {
    // ---- Set by the application thread before packets come; cleared by whoever receives ----
    std::atomic<uint8_t> missing{0}; // one bit a ConfigKind

    // ---- Constant once something is missing ----
    int32_t payloadType = -1; // of the packets to look into; -1: any

    // ---- Whoever receives ----
    std::unique_ptr<UnitInPieces> pieces;
    int32_t elementNumber = -1; // of the packet that begins the next audio element; -1: not known

    // ---- Written by whoever receives; constant once their bits are in `found` ----
    std::array<ConfigBytes, kConfigKinds> configs;
    std::atomic<uint8_t> found{0};
};

// Has whatever the stream's description lacks looked for. Application thread, before its packets come.
void SearchMissingConfig(RTSPStreamInfo &stream);

// Looks into a packet of a stream that misses something. Whoever receives; the packet is not queued yet.
void SearchPacket(RTSPStreamInfo &stream, const RTPStreamData &packet);

// What has been found so far; empty when nothing. It stays until the stream is released. Any thread.
std::span<const uint8_t> FindConfig(const RTSPStreamInfo &stream, ConfigKind kind);

} // namespace rtsptap
