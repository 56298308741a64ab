// Socket addresses: read, bound, connected, joined, sent to. The rest of the library never looks into one; what is
// opened here is IPv4.
#pragma once

#include "rtsptap.h"

#include <cstdint>
#include <sys/socket.h>

namespace rtsptap {

struct Address {
    sockaddr_storage storage = {};
    socklen_t length = 0; // 0: none
};

// The IPv4 address that inet_addr(3) reads in the text: what is no address becomes 255.255.255.255, which every use
// of it refuses. `port` in host order.
Address ReadAddress(const char *text, uint16_t port);

// Every local address of the family that sockets are opened for, with that port.
Address AnyAddress(uint16_t port);

// The same host, another port.
Address WithPort(Address address, uint16_t port);

// ---- Sockets: closed on exec, -1 with errno when there is none ----

int OpenStreamSocket();
int OpenDatagramSocket();

// False with errno.
bool ConnectTo(int socket, const Address &address);
// The same within `limitMs`, which signals do not end; 0: as long as the system lets it.
bool ConnectWithin(int socket, const Address &address, int limitMs);
bool BindTo(int socket, const Address &address);
// Receives what is sent to the group, on the interface that the system chooses. False with errno.
bool JoinGroup(int socket, const char *group);

// sendto(2), without SIGPIPE.
ssize_t SendTo(int socket, const void *bytes, std::size_t count, const Address &address);

// An address that the application's thread changes while others read it.
class SharedAddress {
public:
    SharedAddress() = default;
    SharedAddress(const SharedAddress &) = delete;
    SharedAddress &operator=(const SharedAddress &) = delete;

    void Set(const Address &address);
    Address Get() const;

private:
    mutable pthread_mutex_t lock_ = PTHREAD_MUTEX_INITIALIZER; // a leaf
    Address address_;
};

} // namespace rtsptap
