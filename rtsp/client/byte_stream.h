// What lies between the sockets and the bytes of a client's connections: what the program has set for them, and
// what the connection under way was opened with. Application thread.
#pragma once

#include "platform/text.h"
#include "rtp/interleaved/byte_stream.h"

#include <array>
#include <cstdint>

namespace rtsptap {

class CallTrace;
struct RTSPClient;

// The client embeds one; ReleaseStreamWays releases it.
struct StreamWays {
    std::array<StreamMaker *, 2> set = {}; // by RTSPTapStreamUse; one use of each is ours
    bool throughHttp = false;
    StreamMaker *chosen = nullptr; // for the connection under way and those in its place; one use is ours
    bool keepsToTcp = false;       // the same: datagrams would be in the clear, or not get through
    char host[256] = {};           // the same
    char failure[256] = {};        // why the last one failed
};

void ReleaseStreamWays(StreamWays &ways);

// What a connection is to be.
struct StreamPlan {
    const char *host;       // name or address, as the program has it
    const char *requestUrl; // of its session
    bool isSecure = false;
    bool isTunnelled = false;
};

// Before connecting. RTSP_SUCCESS, RTSPTAP_NO_TLS or RTSP_NO_MEMORY.
int32_t ChooseStream(const CallTrace &trace, RTSPClient &client, const StreamPlan &plan);
// On a socket that has just connected: what was chosen, ready for the first request. Null where that is nothing.
int32_t OpenStream(const CallTrace &trace, RTSPClient &client, int32_t socket, ByteStreamPtr &stream);

// After the connection was closed, when nobody reads it any more: what its stream said of a failure is kept.
void NoteStreamFailure(RTSPClient &client);

bool KeepsToTcp(const RTSPClient &client);

} // namespace rtsptap
