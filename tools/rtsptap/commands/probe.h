// rtsptap probe: what a server offers, and how long every step takes up to the first key frame.
#pragma once

#include "base/interruption.h"
#include "base/outcome.h"
#include "base/settings.h"
#include "session/library_output.h"

namespace tool {

struct ProbeSettings {
    ServerSettings server;
    bool json = false; // instead of text
};

Outcome Probe(const ProbeSettings &settings, const LibraryOutput &output, Interruption &interruption);

} // namespace tool
