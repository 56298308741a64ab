// rtsptap snapshot: the first picture of an RTSP server that can be decoded.
#pragma once

#include "base/interruption.h"
#include "base/settings.h"
#include "media/output_file.h"
#include "session/library_output.h"

namespace tool {

struct SnapshotSettings {
    ServerSettings server;
    OutputSettings output;
    std::chrono::milliseconds limit{10000}; // from playing to the picture
};

Outcome Snapshot(const SnapshotSettings &settings, const LibraryOutput &output, Interruption &interruption);

} // namespace tool
