#include "platform/address.h"

#include "platform/system.h"

#include <arpa/inet.h>
#include <cstddef>
#include <cstring>
#include <netinet/in.h>

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
