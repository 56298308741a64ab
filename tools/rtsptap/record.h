// rtsptap record: the streams of an RTSP server into a file.
#pragma once

#include "interruption.h"
#include "library_output.h"
#include "output_file.h"
#include "play.h"

namespace tool {

struct RecordSettings {
    PlaySettings play;
    OutputSettings output;
};

Outcome Record(const RecordSettings &settings, const LibraryOutput &output, Interruption &interruption);

} // namespace tool
