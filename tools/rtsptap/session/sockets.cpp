#include "session/sockets.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <iterator>
#include <linux/sock_diag.h>
#include <linux/sockios.h>
#include <memory>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
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

} // namespace

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

std::vector<int> NewSockets(const std::vector<int> &before, const std::vector<int> &now) {
    std::vector<int> fresh;
    std::set_difference(now.begin(), now.end(), before.begin(), before.end(), std::back_inserter(fresh));
    return fresh;
}

bool IsConnected(int socket) {
    sockaddr_storage peer = {};
    socklen_t size = sizeof peer;
    return Option(socket, SO_TYPE) == SOCK_STREAM &&
           getpeername(socket, reinterpret_cast<sockaddr *>(&peer), &size) == 0;
}

bool IsControlPort(int socket) {
    uint16_t port = 0;
    return Option(socket, SO_TYPE) == SOCK_DGRAM && LocalPort(socket, port) && port % 2 == 1;
}

bool IsClosedByPeer(int socket) {
    pollfd look{socket, POLLRDHUP, 0};
    return poll(&look, 1, 0) > 0 && (look.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
}

bool HasUnreadBytes(int socket) {
    int bytes = 0;
    return ioctl(socket, FIONREAD, &bytes) == 0 && bytes > 0;
}

// The system keeps the time of the datagram that was read last, from the first time on that it is asked for it.
bool HasReceived(int socket) {
    timeval time = {};
    return ioctl(socket, SIOCGSTAMP, &time) == 0;
}

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

MulticastMembership::MulticastMembership(const std::string &group)
    : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    ip_mreqn request = {};
    joined_ = socket_ >= 0 && inet_pton(AF_INET, group.c_str(), &request.imr_multiaddr) == 1 &&
              setsockopt(socket_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request) == 0;
}

MulticastMembership::~MulticastMembership() {
    if (socket_ >= 0) close(socket_);
}

} // namespace tool
