// Names of the files that are written: with the time in them, numbered in parts, and none of one that exists.
#pragma once

#include "base/interruption.h"
#include "base/outcome.h"

#include <string>

namespace tool {

// The pattern's conversions of strftime ("%Y%m%d-%H%M%S") as the local time now; "%%" is "%", and what is no
// conversion, or would put a "/" there, stays as it is.
std::string WithTime(const std::string &pattern);

// The next part of a recording, "walk-004.mp4" behind the highest number there is. A pattern with a time is a name
// without number, as long as there is no such file.
std::string NextPart(const std::string &pattern);

enum class Overwriting { kAsk, kAlways, kNever };

// Ok unless the file exists and holds something that is to be kept; asks where there is somebody to ask.
Outcome AllowOverwriting(const std::string &path, Overwriting overwriting, Interruption &interruption);

} // namespace tool
