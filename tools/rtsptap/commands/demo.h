// rtsptap demo: starts the bundled server and plays it.
#pragma once

#include "cli/outcome.h"
#include "cli/settings.h"
#include "session/interruption.h"
#include "session/library_output.h"

namespace tool {

struct DemoSettings {
    bool tcp = false;  // inside the RTSP connection
    bool auth = false; // the server asks for a password
    std::chrono::milliseconds duration{5000};
};

Outcome Demo(const DemoSettings &settings, const LibraryOutput &output, Interruption &interruption);

} // namespace tool
