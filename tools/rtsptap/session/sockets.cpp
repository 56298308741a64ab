#include "session/sockets.h"

#include <algorithm>
#include <cstdlib>
#include <dirent.h>
#include <linux/sock_diag.h>
#include <memory>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {
namespace {

int Option(int socket, int name) {
    int value = 0;
    socklen_t size = sizeof value;
    return getsockopt(socket, SOL_SOCKET, name, &value, &size) == 0 ? value : -1;
}

// Of its own end; false when it is no socket of IPv4 or IPv6, where the port stands at the same place.
bool LocalPort(int socket, uint16_t &port) {
    sockaddr_in6 address = {};
    socklen_t size = sizeof address;
    const bool isKnown = getsockname(socket, reinterpret_cast<sockaddr *>(&address), &size) == 0;
    port = ntohs(address.sin6_port);
    return isKnown && (address.sin6_family == AF_INET || address.sin6_family == AF_INET6);
}

std::vector<int> OpenSockets() {
    std::vector<int> sockets;
    const std::unique_ptr<DIR, int (*)(DIR *)> list(opendir("/proc/self/fd"), closedir);
    while (const dirent *entry = list != nullptr ? readdir(list.get()) : nullptr) {
        // Looked at by name: the descriptor may be another thread's, which is about to close it.
        struct stat status;
        if (fstatat(dirfd(list.get()), entry->d_name, &status, 0) == 0 && S_ISSOCK(status.st_mode))
            sockets.push_back(std::atoi(entry->d_name));
    }
    std::sort(sockets.begin(), sockets.end());
    return sockets;
}

} // namespace

// A descriptor may be closed meanwhile, and be another: reading harms neither.
std::vector<UdpSocket> OwnUdpSockets() {
    std::vector<UdpSocket> sockets;
    for (const int socket : OpenSockets()) {
        uint32_t memory[SK_MEMINFO_VARS] = {};
        socklen_t size = sizeof memory;
        uint16_t port = 0;
        const bool isUdp = Option(socket, SO_TYPE) == SOCK_DGRAM && LocalPort(socket, port) &&
                           getsockopt(socket, SOL_SOCKET, SO_MEMINFO, memory, &size) == 0;
        if (isUdp) sockets.push_back({port, memory[SK_MEMINFO_RCVBUF], memory[SK_MEMINFO_DROPS]});
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
