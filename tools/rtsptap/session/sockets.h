// The sockets that the library opens and hands out to nobody, found and looked at by means of the system.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tool {

std::vector<int> OpenSockets(); // of this process, ascending

bool IsStreamTo(int socket, const std::string &address, uint16_t port); // TCP, connected with it

// Those of `now` that were not there before.
std::vector<int> NewSockets(const std::vector<int> &before, const std::vector<int> &now);

bool IsControlPort(int socket); // UDP on an odd port: RTCP (RFC 3550, 11)
// Why no connection came about, as it shows in another look: "connection refused".
std::string WhyUnreachable(const std::string &address, uint16_t port);

bool IsClosedByPeer(int socket); // TCP: nothing more will come
bool HasUnreadBytes(int socket); // they lie there for whoever reads next
bool HasReceived(int socket);    // UDP: somebody has read a datagram from it

} // namespace tool
