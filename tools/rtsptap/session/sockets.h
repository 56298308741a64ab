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

} // namespace tool
