// A stream's local sockets over UDP: a pair of ports, or a multicast group in place of the first. Steps of SETUP;
// application thread.
#pragma once

#include "rtp/protection.h"

#include <cstdint>
#include <string_view>

namespace rtsptap {

struct Exchange;
struct RTSPStreamInfo;

// Which sockets of the stream a failure closes.
enum class Undo { kNothing, kRtpSocket, kBothSockets };

// What the steps of one SETUP share.
struct SetupParts {
    RTSPStreamInfo *stream = nullptr; // the stream set up
    Undo undo = Undo::kNothing;
    uint16_t userClientPort = 0;   // from the user's Transport header; 0 when not given
    uint16_t localPort = 0;        // of RTP, that of RTCP is the next one; over UDP, when the sockets are open
    bool hasUserTransport = false; // the list has such a header
    bool joinsSession = false;     // an earlier SETUP has begun it, and this request names it
    const char *profile = nullptr; // of protected packets, "RTP/SAVP" or "RTP/SAVPF"; null: they are not
    ProtectionPtr protection = {}; // of such a stream, before it has it

    // What only RTSPTapSetup asks for.
    bool namesSession = false;  // wherever one is under way
    bool asksMulticast = false; // nothing else is good
    bool grantsTcp = false;     // out: the reply's transport is interleaved
};

// RTSPTapSetup for one stream, over what the session's dataProto and `parts` say; its result.
int32_t SetUpStream(intptr_t clientHandle, int32_t number, SetupParts &parts);

extern uint16_t gblClientRtspUdpPort; // the last client RTP port handed out; guarded by gblRTSPClientListLock

// Makes and binds the RTP and RTCP sockets of the exchange's stream: to the user's port, or to the next free
// one. 0, or the method's result after its message; a failure leaves no socket. The caller holds
// gblRTSPClientListLock, so no two clients take the same port.
int32_t OpenUdpPair(Exchange &exchange);

// Where the program asks for it: only the server, and whom it has named in its reply, is received from. A step's
// result; after a failure the sockets are open.
int32_t FilterSources(const Exchange &exchange);

// Takes the group and port from the Transport value of a SETUP reply and joins. The order is fixed: close,
// socket, SO_REUSEADDR, bind, join. The RTCP socket stays as it is.
int32_t JoinMulticast(Exchange &exchange, std::string_view transport);

} // namespace rtsptap
