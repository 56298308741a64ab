#include "platform/address.h"

#include "platform/system.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>

namespace rtsptap {
namespace {

constexpr int kFamily = AF_INET; // of what we open

const sockaddr *Raw(const Address &address) { return reinterpret_cast<const sockaddr *>(&address.storage); }

Address FromIpv4(in_addr_t host, uint16_t port) {
    sockaddr_in ipv4 = {};
    ipv4.sin_family = AF_INET;
    ipv4.sin_addr.s_addr = host;
    ipv4.sin_port = htons(port);
    Address address;
    address.length = sizeof ipv4;
    std::memcpy(&address.storage, &ipv4, sizeof ipv4);
    return address;
}

} // namespace

Address ReadAddress(const char *text, uint16_t port) { return FromIpv4(inet_addr(text), port); }

Address AnyAddress(uint16_t port) { return FromIpv4(htonl(INADDR_ANY), port); }

Address WithPort(Address address, uint16_t port) {
    // In every IP family the port stands behind the family.
    static_assert(offsetof(sockaddr_in, sin_port) == offsetof(sockaddr_in6, sin6_port));
    const in_port_t wirePort = htons(port);
    std::memcpy(reinterpret_cast<char *>(&address.storage) + offsetof(sockaddr_in, sin_port), &wirePort,
                sizeof wirePort);
    return address;
}

int OpenStreamSocket() { return socket(kFamily, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP); }

int OpenDatagramSocket() { return socket(kFamily, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP); }

bool ConnectTo(int socket, const Address &address) { return connect(socket, Raw(address), address.length) == 0; }

namespace {

// Whether a connection that is being made was made in time.
bool AwaitConnection(int socket, int limitMs) {
    const uint64_t deadline = MonotonicMs() + static_cast<uint64_t>(limitMs);
    pollfd made = {socket, POLLOUT, 0};
    int ready = -1;
    do ready = poll(&made, 1, static_cast<int>(deadline - std::min(MonotonicMs(), deadline)));
    while (ready < 0 && errno == EINTR);
    int error = ETIMEDOUT;
    socklen_t length = sizeof error;
    if (ready > 0 && getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &length) != 0) return false;
    errno = error;
    return error == 0;
}

} // namespace

bool ConnectWithin(int socket, const Address &address, int limitMs) {
    if (limitMs == 0) return ConnectTo(socket, address);
    const int flags = fcntl(socket, F_GETFL);
    if (flags < 0 || fcntl(socket, F_SETFL, flags | O_NONBLOCK) != 0) return false;
    const bool isMade = ConnectTo(socket, address) || (errno == EINPROGRESS && AwaitConnection(socket, limitMs));
    return isMade && fcntl(socket, F_SETFL, flags) == 0;
}

bool BindTo(int socket, const Address &address) { return bind(socket, Raw(address), address.length) == 0; }

bool JoinGroup(int socket, const char *group) {
    ip_mreq membership = {};
    membership.imr_multiaddr.s_addr = inet_addr(group);
    membership.imr_interface.s_addr = htonl(INADDR_ANY);
    return setsockopt(socket, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) == 0;
}

ssize_t SendTo(int socket, const void *bytes, std::size_t count, const Address &address) {
    return sendto(socket, bytes, count, MSG_NOSIGNAL, Raw(address), address.length);
}

void SharedAddress::Set(const Address &address) {
    const ScopedLock lock(lock_);
    address_ = address;
}

Address SharedAddress::Get() const {
    const ScopedLock lock(lock_);
    return address_;
}

} // namespace rtsptap
