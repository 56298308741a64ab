// What connecting to an address and opening an URL share. Application thread.
#pragma once

#include "platform/text.h"
#include "rtp/interleaved/byte_stream.h"

#include <cstdint>

namespace rtsptap {

class CallTrace;
struct Address;
struct RTSPClient;

// A connection that stands, as far as the first request.
struct NewConnection {
    int32_t socket = -1;
    ByteStreamPtr stream = {}; // null: none lies before it
};

// The client's connection is that one from here on, to that address, and its session is known by `requestUrl`.
void BecomeConnected(RTSPClient &client, NewConnection connection, const Address &address, HeapText requestUrl);

// Connects once more to where the client is connected, after the server has closed that connection and whoever
// serves it has seen so. Its session goes on. 0, or why the old one stays.
int32_t ConnectAgain(const CallTrace &trace, RTSPClient &client);

// Connects to the client's server, at most `limitMs` long, 0 of which is as long as the system tries.
int32_t ConnectToServer(const CallTrace &trace, RTSPClient &client, int limitMs, NewConnection &made);

// Without a word: closes the connection and ends the session, as Destroy would. What
// the session had of packets and descriptions stays.
void LeaveServer(RTSPClient &client);

} // namespace rtsptap
