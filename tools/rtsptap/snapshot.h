// rtsptap snapshot: the first picture of an RTSP server that can be decoded.
#pragma once

#include "interruption.h"
#include "library_output.h"
#include "output_file.h"
#include "play.h"

namespace tool {

struct SnapshotSettings {
    PlaySettings play;
    OutputSettings output;
    std::chrono::milliseconds limit{10000}; // from playing to the picture
};

Outcome Snapshot(const SnapshotSettings &settings, const LibraryOutput &output, Interruption &interruption);

} // namespace tool
