// rtsptap record: the streams of an RTSP server into a file.
#pragma once

#include "cli/settings.h"
#include "media/output_file.h"
#include "session/interruption.h"
#include "session/library_output.h"

namespace tool {

struct RecordSettings {
    ServerSettings server;
    ReceptionSettings reception;
    OutputSettings output;
};

Outcome Record(const RecordSettings &settings, const LibraryOutput &output, Interruption &interruption);

} // namespace tool
