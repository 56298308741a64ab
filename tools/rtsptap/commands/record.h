// rtsptap record: the streams of an RTSP server into a file.
#pragma once

#include "base/interruption.h"
#include "base/settings.h"
#include "media/output_file.h"
#include "session/library_output.h"

namespace tool {

struct RecordSettings {
    ServerSettings server;
    ReceptionSettings reception;
    OutputSettings output;
};

Outcome Record(const RecordSettings &settings, const LibraryOutput &output, Interruption &interruption);

} // namespace tool
