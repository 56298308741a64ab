// Which elements lead from RTP to a file, as a table of codecs and formats.
#pragma once

#include "media/output_file.h"
#include "session/stream_format.h"

#include <optional>
#include <string>
#include <vector>

namespace tool {

// The chain from RTP packets to what the format holds; none when it cannot hold this codec.
std::optional<std::string> ChainFor(int32_t codecType, FileFormat format);

// The chain from RTP packets to raw pictures; none for audio.
std::optional<std::string> PictureChainFor(int32_t codecType);

// Samples by which sound that is encoded anew comes out late.
uint32_t EncoderDelay();

// The whole pipeline: a source "feedN" for each of the streams, N being its number, an element "encoderN" for those
// that are encoded anew, and, unless it is standard output, an element "out" that wants the file's location.
std::string DescribeRecording(const OutputFile &file, const std::vector<StreamFormat> &streams);

} // namespace tool
