// rtsptap listen: receives RTP on local ports, without RTSP, and shows or records it.
#pragma once

#include "base/interruption.h"
#include "base/settings.h"
#include "media/output_file.h"
#include "session/library_output.h"
#include "session/session.h"

#include <optional>

namespace tool {

struct ListenSettings {
    ListenPort video;
    ListenPort audio;
    std::string sdpFile;                              // a description instead; "-": standard input
    std::optional<std::chrono::milliseconds> latency; // how long packets are held back; none: as usual
    ReceptionSettings reception;
    OutputSettings output; // no file: nothing is recorded
};

// Reads "h264@5004"; false when codec or port are none, or the codec is one of the other medium.
bool ParseListenPort(const std::string &text, bool video, ListenPort &port);

Outcome Listen(const ListenSettings &settings, const LibraryOutput &output, Interruption &interruption);

} // namespace tool
