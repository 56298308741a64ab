// Socket addresses, IPv4 and IPv6: read, bound, connected, joined, sent to. The rest of the library never looks
// into one.
#pragma once

#include "rtsptap.h"

#include <cstdint>
#include <span>
#include <string_view>
#include <sys/socket.h>

namespace rtsptap {

struct Address {
    sockaddr_storage storage = {};
    socklen_t length = 0; // 0: none
};

// The IPv4 address that inet_addr(3) reads in the text: what is no address becomes 255.255.255.255, which every use
// of it refuses. `port` in host order.
Address ReadAddress(const char *text, uint16_t port);

// The address that stands in the text, IPv6 with or without brackets where `kin` is IPv6, otherwise as ReadAddress
// reads it.
Address ReadAddressLike(const Address &kin, std::string_view text, uint16_t port);

// The host as text, with a terminator; empty where it does not fit.
void WriteAddress(const Address &address, std::span<char> text);
// An address of either family, without brackets; none where the text is none.
Address ReadAnyAddress(const char *text, uint16_t port);
bool IsGroup(const Address &address); // of multicast

// Every local address of the family of `kin`, with that port; IPv4 where that is none.
Address AnyAddress(uint16_t port, const Address &kin = {});

// The same host, another port.
Address WithPort(Address address, uint16_t port);

// ---- Sockets: closed on exec, -1 with errno when there is none ----

// Of the family of `kin`; IPv4 where that is none.
int OpenStreamSocket(const Address &kin = {});
int OpenDatagramSocket(const Address &kin = {});

// False with errno.
bool ConnectTo(int socket, const Address &address);
// The same within `limitMs`, which signals do not end; 0: as long as the system lets it.
bool ConnectWithin(int socket, const Address &address, int limitMs);
bool BindTo(int socket, const Address &address);
// Whether the connection that a non-blocking socket was making is made.
bool IsConnected(int socket);

// From there on the socket, one for datagrams of the hosts' family, receives nothing of others; their ports do not
// count. One or two hosts. False with errno.
bool ReceiveOnlyFrom(int socket, std::span<const Address> hosts);

// ---- Multicast ----

// How groups are joined and sent to. Empty texts and 0 leave it to the system.
struct MulticastWays {
    char interface[64] = {}; // its name, or an address of it
    char source[64] = {};    // the only sender that is listened to (RFC 4607)
    int64_t hops = 0;        // how far what we send goes: TTL, hop limit
};

// Receives what is sent to the group. False with errno.
bool JoinGroup(int socket, const Address &group, const MulticastWays &ways = {});
// What is sent to a group by this socket goes out by `ways`; of other groups, which somebody else on this machine
// has joined, it receives nothing. False with errno.
bool PrepareForGroups(int socket, const Address &group, const MulticastWays &ways);
// Several sockets may bind to one port, as long as all of them say so.
bool SharePort(int socket);

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
