// Looks into RTP payloads for the pictures that need no other.
#pragma once

#include "rtsptap.h"

#include <cstdint>
#include <span>
#include <vector>

namespace tool {

// The payload; empty when the packet's header claims more than came.
std::span<const uint8_t> PayloadOf(const RTPStreamData &packet);

// Codecs of which single key frames can be told: the others begin with any packet.
bool HasKeyFrames(int32_t codecType);

// An H.264 IDR picture or parameter set, an MPEG-4 intra picture, any JPEG begins in this packet.
bool BeginsKeyFrame(int32_t codecType, std::span<const uint8_t> payload);

// The H.264 sequence parameter set in a packet; empty when it has none, or not whole.
std::span<const uint8_t> FindSps(std::span<const uint8_t> payload);

} // namespace tool
