// UDP sockets of this process, seen through the system: what the kernel knows of them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tool {

struct UdpSocket {
    uint16_t port = 0;        // local
    uint32_t bufferBytes = 0; // as the kernel accounts for it: twice what was asked for
    uint32_t drops = 0;       // datagrams since it was opened that found the buffer full
};

std::vector<UdpSocket> OwnUdpSockets(); // of this process

// What a new socket gets that asks for so many bytes; 0: that asks for nothing. As in UdpSocket.
uint32_t GrantedBufferBytes(int asked);

// Makes the system hand the datagrams of a multicast group to this machine's sockets: those bound to every local
// address get what any socket of the machine has joined.
class MulticastMembership {
public:
    explicit MulticastMembership(const std::string &group); // dotted, on the interface that routes there
    ~MulticastMembership();
    MulticastMembership(const MulticastMembership &) = delete;
    MulticastMembership &operator=(const MulticastMembership &) = delete;

    bool HasJoined() const { return joined_; } // else errno of the constructor tells

private:
    int socket_ = -1;
    bool joined_ = false;
};

} // namespace tool
