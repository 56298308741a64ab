// Looks into RTP payloads: where key frames begin, parameter sets, what the pictures are.
#pragma once

#include "media/parameter_sets.h"
#include "rtsptap_extended.h"

#include <cstdint>
#include <optional>
#include <span>

namespace tool {

// The payload; empty when the packet's header claims more than came.
std::span<const uint8_t> PayloadOf(const RTPStreamData &packet);

// A picture that needs no other one begins in this packet, or parameter sets before it.
bool BeginsKeyFrame(int32_t codecType, std::span<const uint8_t> payload);

// What the codec cannot be decoded without is in this packet: a sequence parameter set of H.264 or H.265, whole.
bool HasParameterSets(int32_t codecType, std::span<const uint8_t> payload);

// What this packet, or a parameter set of a description, tells of the pictures; none when it does not.
std::optional<PictureFormat> PictureIn(int32_t codecType, std::span<const uint8_t> payload);

} // namespace tool
