// rtsptap play: receives the streams of an RTSP server and reports what arrived.
#pragma once

#include "interruption.h"
#include "library_output.h"
#include "outcome.h"
#include "rtsptap.h"
#include "session.h"

#include <chrono>
#include <optional>
#include <string>

namespace tool {

struct PlaySettings {
    std::string url;
    std::string user; // replaces the one of the URL
    DataProto transport = DATA_PROTO_UDP;
    std::chrono::milliseconds duration{0}; // 0: until interrupted
};

// From the address to playing streams; names on standard error the streams that are left out.
Outcome OpenSession(const PlaySettings &settings, std::optional<Session> &session);

Outcome Play(const PlaySettings &settings, const LibraryOutput &output, Interruption &interruption);

} // namespace tool
