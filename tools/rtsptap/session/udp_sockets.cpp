#include "session/udp_sockets.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace tool {
namespace {

int Option(int descriptor, int name) {
    int value = 0;
    socklen_t length = sizeof value;
    return getsockopt(descriptor, SOL_SOCKET, name, &value, &length) == 0 ? value : -1;
}

// None when the descriptor is no UDP socket. It may be closed meanwhile, and be another: reading harms neither.
std::optional<UdpSocket> Look(int descriptor) {
    if (Option(descriptor, SO_DOMAIN) != AF_INET || Option(descriptor, SO_TYPE) != SOCK_DGRAM) return {};
    uint32_t memory[SK_MEMINFO_VARS] = {};
    socklen_t memoryLength = sizeof memory;
    sockaddr_in address = {};
    socklen_t addressLength = sizeof address;
    if (getsockopt(descriptor, SOL_SOCKET, SO_MEMINFO, memory, &memoryLength) != 0 ||
        getsockname(descriptor, reinterpret_cast<sockaddr *>(&address), &addressLength) != 0)
        return {};
    return UdpSocket{ntohs(address.sin_port), memory[SK_MEMINFO_RCVBUF], memory[SK_MEMINFO_DROPS]};
}

} // namespace

std::vector<UdpSocket> OwnUdpSockets() {
    std::vector<UdpSocket> sockets;
    std::error_code error;
    for (std::filesystem::directory_iterator entry("/proc/self/fd", error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string name = entry->path().filename();
        int descriptor = -1;
        std::from_chars(name.data(), name.data() + name.size(), descriptor);
        if (const std::optional<UdpSocket> found = Look(descriptor)) sockets.push_back(*found);
    }
    return sockets;
}

uint32_t GrantedBufferBytes(int asked) {
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
    if (descriptor < 0) return 0;
    if (asked > 0) setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &asked, sizeof asked);
    const int granted = Option(descriptor, SO_RCVBUF);
    close(descriptor);
    return static_cast<uint32_t>(std::max(granted, 0));
}

} // namespace tool
