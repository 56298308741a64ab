// Looks into RTP payloads: where key frames begin, parameter sets, what the pictures are.
#pragma once

#include "rtsptap.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace tool {

struct PictureFormat {
    std::string profile; // "High"; "profile 44" when it has no known name
    std::string level;   // "3.1"
    uint32_t width = 0;  // of what is shown, after cropping
    uint32_t height = 0;
};

// The payload; empty when the packet's header claims more than came.
std::span<const uint8_t> PayloadOf(const RTPStreamData &packet);

// An H.264 IDR picture or parameter set, an MPEG-4 intra picture, any JPEG begins in this packet.
bool BeginsKeyFrame(int32_t codecType, std::span<const uint8_t> payload);

// What the codec cannot be decoded without is in this packet: H.264's sequence parameter set, whole.
bool HasParameterSets(int32_t codecType, std::span<const uint8_t> payload);

// What this packet, or a parameter set of a description, tells of the pictures; none when it does not.
std::optional<PictureFormat> PictureIn(int32_t codecType, std::span<const uint8_t> payload);

} // namespace tool
