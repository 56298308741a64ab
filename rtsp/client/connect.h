// What connecting to an address and opening an URL share. Application thread.
#pragma once

#include "platform/text.h"
#include "rtp/interleaved/byte_stream.h"

#include <cstdint>

namespace rtsptap {

struct Address;
struct RTSPClient;

// A connection that stands, as far as the first request.
struct NewConnection {
    int32_t socket = -1;
    ByteStreamPtr stream = {}; // null: none lies before it
};

// The client's connection is that one from here on, to that address, and its session is known by `requestUrl`.
void BecomeConnected(RTSPClient &client, NewConnection connection, const Address &address, HeapText requestUrl);

// Without a word: closes the connection and ends the session, as Destroy would. What
// the session had of packets and descriptions stays.
void LeaveServer(RTSPClient &client);

} // namespace rtsptap
