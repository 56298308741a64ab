// The sockets that the library opens and hands out to nobody, found and looked at by means of the system.
#pragma once

#include <vector>

namespace tool {

std::vector<int> OpenSockets(); // of this process, ascending

// Those of `now` that were not there before.
std::vector<int> NewSockets(const std::vector<int> &before, const std::vector<int> &now);

bool IsStream(int socket);       // TCP, connected
bool IsControlPort(int socket);  // UDP on an odd port: RTCP (RFC 3550, 11)
bool IsClosedByPeer(int socket); // TCP: nothing more will come
bool HasReceived(int socket);    // UDP: somebody has read a datagram from it

} // namespace tool
