// The codecs we have a code for, one row each: the name in an rtpmap attribute, the code, the group it belongs to
// for the standalone receiver, and what the format parameters tell a decoder. Constant data, any thread.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace rtsptap {

enum class CodecGroup { kVideo, kAudio, kTransportStream, kData };

// What an fmtp attribute may carry that the description hands out.
enum class CodecConfig {
    kNone,
    kH264ParameterSets, // RFC 6184, 8.1
    kAacConfig,         // RFC 3640, 4.1
    kH265ParameterSets, // RFC 7798, 7.1
    kConfigBytes        // "config=", handed out as it is
};

enum class NameMatch { kExact, kIgnoringCase, kContained };

struct Codec {
    std::string_view name; // encoding name
    NameMatch match;
    int32_t type; // RTPCodecType, or RTSPTapCodec for a further one
    CodecGroup group;
    CodecConfig config = CodecConfig::kNone;
    bool isFurther = false; // there for those clients only whose dialect has it
    int32_t clockRate = 0;  // RTP timestamp units per second of audio where they are always the same (RFC 3551)
};

// The row of a code, or null.
const Codec *FindCodec(int32_t codecType);
// The first row that fits the name, or null; none of the further ones.
const Codec *FindCodecByName(std::string_view encodingName);
// The same, whatever the case of its letters.
const Codec *FindCodecInAnyCase(std::string_view encodingName);
// The same among the further ones.
const Codec *FindFurtherCodec(std::string_view encodingName);

// RTP timestamp units per second of a codec; 0 where they differ from stream to stream.
int32_t UsualClockRate(int32_t codecType);

// Asked twice for every packet: whether it is an RTPCodecType. Further codecs are none.
extern const std::array<bool, 256> kIsCodecType;
inline bool IsCodecType(int32_t codecType) {
    const auto code = static_cast<uint32_t>(codecType);
    return code < kIsCodecType.size() && kIsCodecType[code];
}

} // namespace rtsptap
