// rtsptap play: receives the streams of an RTSP server and reports what arrived.
#pragma once

#include "base/interruption.h"
#include "base/outcome.h"
#include "base/settings.h"
#include "session/library_output.h"

namespace tool {

struct PlaySettings {
    ServerSettings server;
    ReceptionSettings reception;
};

Outcome Play(const PlaySettings &settings, const LibraryOutput &output, Interruption &interruption);

} // namespace tool
