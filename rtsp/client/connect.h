// What connecting to an address and opening an URL share. Application thread.
#pragma once

#include "platform/text.h"

#include <cstdint>

namespace rtsptap {

struct Address;
struct RTSPClient;

// The client's connection is `socket` from here on, to that address, and its session is known by `requestUrl`.
void BecomeConnected(RTSPClient &client, int32_t socket, const Address &address, HeapText requestUrl);

// Without a word: closes the connection and ends the session, as Destroy would. What
// the session had of packets and descriptions stays.
void LeaveServer(RTSPClient &client);

} // namespace rtsptap
