// rtsptap listen: receives RTP on local ports, without RTSP, and reports what arrived.
#pragma once

#include "interruption.h"
#include "library_output.h"
#include "output_file.h"
#include "session.h"

#include <chrono>

namespace tool {

struct ListenSettings {
    ListenPort video;
    ListenPort audio;
    std::chrono::milliseconds duration{0}; // 0: until interrupted
    OutputSettings output;                 // no file: only reports
};

// Reads "h264@5004"; false when codec or port are none, or the codec is one of the other medium.
bool ParseListenPort(const std::string &text, bool video, ListenPort &port);

Outcome Listen(const ListenSettings &settings, const LibraryOutput &output, Interruption &interruption);

} // namespace tool
