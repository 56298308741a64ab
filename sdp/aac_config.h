// AAC configuration from a stream's format parameters (RFC 3640, 4.1; ISO 14496-3, 1.6.2.1).
// Application thread.
#pragma once

#include <cstdint>
#include <string_view>

namespace rtsptap {

struct RTSPStreamInfo;

inline constexpr int32_t adtsSamplingRates[16] = { // Hz, by sampling frequency index; 0 is reserved
    96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 7350, 0, 0, 0};

// Two hexadecimal digits of `text` a byte. The number of bytes, or RTSP_FAILURE when the text is not pairs of
// digits or they do not fit.
int32_t ConvertAsciiToHex(std::string_view text, uint8_t *bytes, int32_t capacity);

// Decodes "config=" of the stream's fmtp text into the description's aac fields. Object type, rate and
// channels are those of the core layer, as an ADTS header names them: HE-AAC shows as AAC-LC at half the
// rate. Channels are 0 where the configuration lists its channel elements instead. On failure, negative, the
// fields stay as they are.
int32_t ExtractAACConfig(RTSPStreamInfo *stream);

} // namespace rtsptap
