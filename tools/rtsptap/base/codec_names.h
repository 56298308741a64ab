// The codecs of the library and the names they have on the command line.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

// A codec type by its name, letter case ignored; 0 when there is none of that name.
int32_t CodecTypeOfName(std::string_view name);

// By the name that descriptions use, as "mpeg4-generic" or "G726-32"; 0 when there is none of that name.
int32_t CodecTypeOfEncoding(std::string_view name);

// "h264", "mp4v", ... of the video or of the audio codecs.
std::vector<std::string> CodecNames(bool video);

// The usual spelling, as in "H264".
const char *CodecDisplayName(int32_t codecType);

} // namespace tool
