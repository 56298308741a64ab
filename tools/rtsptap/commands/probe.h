// rtsptap probe: what a server offers, and how long every step takes up to the first key frame.
#pragma once

#include "cli/outcome.h"
#include "cli/settings.h"
#include "session/interruption.h"
#include "session/library_output.h"

namespace tool {

struct ProbeSettings {
    ServerSettings server;
    bool json = false; // instead of text
};

Outcome Probe(const ProbeSettings &settings, const LibraryOutput &output, Interruption &interruption);

} // namespace tool
