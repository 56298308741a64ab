// Payload formats: what an assembly does with each packet, and how it is made ready for a stream. One row a codec.
#pragma once

#include "rtp/frames/assembly.h"

#include <string_view>

namespace rtsptap {

struct PayloadFormat {
    int32_t codecType; // RTPCodecType or RTSPTapCodec
    void (*add)(Assembly &assembly, const Packet &packet);
    // Null: nothing to be made ready. False: the description says what cannot be read.
    bool (*prepare)(Assembly &assembly, const RTSPTapStreamDescription &description) = nullptr;
};

const PayloadFormat *FindPayloadFormat(int32_t codecType); // null when there is none

// The value of a format parameter, whose name may be in any case; empty without it.
std::string_view FormatParameter(const char *fmtp, std::string_view name);
// Its number; `byDefault` without it.
int32_t FormatNumber(const char *fmtp, std::string_view name, int32_t byDefault);

// The payload; false when the packet's header claims more than came.
bool FindPayload(const RTPStreamData &packet, Bytes &payload);

// Takes the next of several NAL units in a packet off the front: `before` bytes, two of length, the unit. False,
// and `unit` empty, at the end and where more is claimed than there is.
bool TakeNalUnit(Bytes &units, std::size_t before, Bytes &unit);

struct Vp8Part {
    Bytes bytes;          // behind the descriptor; empty: nothing is
    bool isFirst = false; // of its frame
};
Vp8Part FindVp8Part(Bytes payload); // RFC 7741, 4.2

void AddH264(Assembly &assembly, const Packet &packet);
bool PrepareH264(Assembly &assembly, const RTSPTapStreamDescription &description);
void AddH265(Assembly &assembly, const Packet &packet);
bool PrepareH265(Assembly &assembly, const RTSPTapStreamDescription &description);
void AddAac(Assembly &assembly, const Packet &packet);
bool PrepareAac(Assembly &assembly, const RTSPTapStreamDescription &description);
void AddJpeg(Assembly &assembly, const Packet &packet);
void AddVp8(Assembly &assembly, const Packet &packet);
// A packet is a frame, and any can be decoded alone.
void AddWhole(Assembly &assembly, const Packet &packet);

} // namespace rtsptap
