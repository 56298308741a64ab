// What an fmtp attribute tells a decoder, as cameras write it: parameter sets of H.264 (RFC 6184, 8.1) and H.265
// (RFC 7798, 7.1), and configurations of MPEG-4, of which that of AAC is read (RFC 3640, 4.1; ISO
// 14496-3, 1.6.2.1). Application thread.
#pragma once

#include "platform/text.h"

#include <cstdint>
#include <string_view>

namespace rtsptap {

struct RTSPStreamInfo;

// What follows `mark` ("name=", ignoring case) up to the parameter's end at ";"; a null view without it.
// A name that stands at the start or behind a blank or ";" goes before one inside another: of
// "streamconfig=1;config=2" "config=" is 2, but 1 where nothing else is found.
std::string_view FmtpParameter(std::string_view fmtp, std::string_view mark);

// The first run of characters that are neither blanks nor quotes.
std::string_view FirstWord(std::string_view text);

// The parameters as they would be spelled usually: without blanks and quotes around names and values, without empty
// ones, "0x" and the letters that others have for "-" in names, "+" and "/" in values; sets without padding and
// half a byte at their ends. Null when memory is short.
HeapText PlainSpelling(std::string_view fmtp);

// Decodes "sprop-parameter-sets=" of the stream's fmtp text: the first sequence and the first picture
// parameter set become the description's sps and pps. Sets that are not found leave the fields as they are.
// 0 when both were found, else RTSP_FAILURE.
int32_t ExtractSPSPPS(RTSPStreamInfo *stream);

// The same for "sprop-vps=", "sprop-sps=" and "sprop-pps=", whichever of the three a set stands in.
void ExtractH265ParameterSets(RTSPStreamInfo &stream);

// Decodes "config=" of the stream's fmtp text into the further description, where it is hexadecimal digits.
void ExtractConfigBytes(RTSPStreamInfo &stream);

// Two hexadecimal digits of `text` a byte. The number of bytes, or RTSP_FAILURE when the text is not pairs of
// digits or they do not fit.
int32_t ConvertAsciiToHex(std::string_view text, uint8_t *bytes, int32_t capacity);

// Decodes "config=" of the stream's fmtp text into the description's aac fields. Object type, rate and
// channels are those of the core layer, as an ADTS header names them: HE-AAC shows as AAC-LC at half the
// rate. Channels are 0 where the configuration lists its channel elements instead. On failure, negative, the
// fields stay as they are.
int32_t ExtractAACConfig(RTSPStreamInfo *stream);

} // namespace rtsptap
