// rtsptap demo: starts the bundled server and plays it.
#pragma once

#include "base/interruption.h"
#include "base/outcome.h"
#include "base/settings.h"
#include "session/library_output.h"

namespace tool {

struct DemoSettings {
    bool tcp = false;  // inside the RTSP connection
    bool auth = false; // the server asks for a password
    std::chrono::milliseconds duration{5000};
};

Outcome Demo(const DemoSettings &settings, const LibraryOutput &output, Interruption &interruption);

} // namespace tool
