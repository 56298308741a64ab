// A file that a sink writes itself: packets as they were received, or a picture.
#pragma once

#include "base/clock.h"
#include "base/writing.h"
#include "media/output_file.h"

#include <chrono>
#include <cstdio>

namespace tool {

// The same moment on the wall clock, in nanoseconds since 1970.
class WallClock {
public:
    std::chrono::nanoseconds Of(Clock::time_point moment) const { return offset_ + moment.time_since_epoch(); }

private:
    const std::chrono::nanoseconds offset_ =
        std::chrono::system_clock::now().time_since_epoch() - Clock::now().time_since_epoch();
};

// Standard output as a stream of its own, so that closing it leaves the real one open.
Outcome OpenPacketFile(const OutputFile &file, FILE *&opened);

} // namespace tool
