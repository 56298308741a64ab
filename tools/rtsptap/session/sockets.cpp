#include "session/sockets.h"

#include <algorithm>
#include <cstdlib>
#include <dirent.h>
#include <iterator>
#include <linux/sockios.h>
#include <memory>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>

namespace tool {
namespace {

int TypeOf(int socket) {
    int type = 0;
    socklen_t size = sizeof type;
    return getsockopt(socket, SOL_SOCKET, SO_TYPE, &type, &size) == 0 ? type : -1;
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

bool IsStream(int socket) { return TypeOf(socket) == SOCK_STREAM; }

bool IsControlPort(int socket) {
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    return TypeOf(socket) == SOCK_DGRAM &&
           getsockname(socket, reinterpret_cast<sockaddr *>(&address), &size) == 0 &&
           address.sin_family == AF_INET && ntohs(address.sin_port) % 2 == 1;
}

bool IsClosedByPeer(int socket) {
    tcp_info info = {};
    socklen_t size = sizeof info;
    if (getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) return false;
    return info.tcpi_state == TCP_CLOSE_WAIT || info.tcpi_state == TCP_CLOSE;
}

// The system keeps the time of the datagram that was read last, from the first time on that it is asked for it.
bool HasReceived(int socket) {
    timeval time = {};
    return ioctl(socket, SIOCGSTAMP, &time) == 0;
}

} // namespace tool
