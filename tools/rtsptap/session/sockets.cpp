#include "session/sockets.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <iterator>
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

bool IsStreamTo(int socket, const std::string &address, uint16_t port) {
    sockaddr_in peer = {};
    socklen_t size = sizeof peer;
    return TypeOf(socket) == SOCK_STREAM && getpeername(socket, reinterpret_cast<sockaddr *>(&peer), &size) == 0 &&
           peer.sin_family == AF_INET && peer.sin_addr.s_addr == inet_addr(address.c_str()) &&
           ntohs(peer.sin_port) == port;
}

std::string WhyUnreachable(const std::string &address, uint16_t port) {
    constexpr int kPatienceMs = 1000;
    sockaddr_in server = {};
    server.sin_family = AF_INET;
    server.sin_port = htons(port);
    server.sin_addr.s_addr = inet_addr(address.c_str());
    const int look = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_TCP);
    int error = connect(look, reinterpret_cast<const sockaddr *>(&server), sizeof server) == 0 ? 0 : errno;
    if (pollfd waiting{look, POLLOUT, 0}; error == EINPROGRESS && poll(&waiting, 1, kPatienceMs) > 0) {
        socklen_t size = sizeof error;
        getsockopt(look, SOL_SOCKET, SO_ERROR, &error, &size);
    }
    if (look >= 0) close(look);
    if (error == ECONNREFUSED) return "connection refused: nothing listens there";
    const bool isKnown = error != 0 && error != EINPROGRESS && error != EAGAIN;
    return std::string("it cannot be reached") + (isKnown ? std::string(": ") + std::strerror(error) : "");
}

bool IsControlPort(int socket) {
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    return TypeOf(socket) == SOCK_DGRAM &&
           getsockname(socket, reinterpret_cast<sockaddr *>(&address), &size) == 0 &&
           address.sin_family == AF_INET && ntohs(address.sin_port) % 2 == 1;
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

} // namespace tool
