#include "platform/address.h"

#include "platform/system.h"
#include "platform/text.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <ifaddrs.h>
#include <linux/filter.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>

namespace rtsptap {
namespace {

const sockaddr *Raw(const Address &address) { return reinterpret_cast<const sockaddr *>(&address.storage); }

bool IsIpv6(const Address &address) { return address.storage.ss_family == AF_INET6; }

int FamilyOf(const Address &kin) { return IsIpv6(kin) ? AF_INET6 : AF_INET; }

template <typename System> Address FromSystem(const System &system) {
    Address address;
    address.length = sizeof system;
    std::memcpy(&address.storage, &system, sizeof system);
    return address;
}

Address FromIpv4(in_addr_t host, uint16_t port) {
    sockaddr_in ipv4 = {};
    ipv4.sin_family = AF_INET;
    ipv4.sin_addr.s_addr = host;
    ipv4.sin_port = htons(port);
    return FromSystem(ipv4);
}

Address FromIpv6(const in6_addr &host, uint16_t port, uint32_t scope = 0) {
    sockaddr_in6 ipv6 = {};
    ipv6.sin6_family = AF_INET6;
    ipv6.sin6_addr = host;
    ipv6.sin6_port = htons(port);
    ipv6.sin6_scope_id = scope;
    return FromSystem(ipv6);
}

// The interface that a link-local address belongs to; 0 of any other.
uint32_t ScopeOf(const Address &address) {
    sockaddr_in6 ipv6 = {};
    if (IsIpv6(address)) std::memcpy(&ipv6, &address.storage, sizeof ipv6);
    return ipv6.sin6_scope_id;
}

} // namespace

Address ReadAddress(const char *text, uint16_t port) { return FromIpv4(inet_addr(text), port); }

Address ReadAddressLike(const Address &kin, std::string_view text, uint16_t port) {
    if (text.starts_with('[') && text.ends_with(']')) text = text.substr(1, text.size() - 2);
    char plain[INET6_ADDRSTRLEN];
    CopyText(plain, text);
    in6_addr ipv6 = {};
    if (IsIpv6(kin) && inet_pton(AF_INET6, plain, &ipv6) == 1) return FromIpv6(ipv6, port, ScopeOf(kin));
    return ReadAddress(plain, port);
}

void WriteAddress(const Address &address, std::span<char> text) {
    const auto size = static_cast<socklen_t>(text.size());
    if (getnameinfo(Raw(address), address.length, text.data(), size, nullptr, 0, NI_NUMERICHOST) != 0)
        text[0] = '\0';
}

Address ReadAnyAddress(const char *text, uint16_t port) {
    in_addr ipv4 = {};
    in6_addr ipv6 = {};
    if (inet_pton(AF_INET, text, &ipv4) == 1) return FromIpv4(ipv4.s_addr, port);
    return inet_pton(AF_INET6, text, &ipv6) == 1 ? FromIpv6(ipv6, port) : Address{};
}

bool IsGroup(const Address &address) {
    sockaddr_in ipv4 = {};
    sockaddr_in6 ipv6 = {};
    std::memcpy(&ipv4, &address.storage, sizeof ipv4);
    std::memcpy(&ipv6, &address.storage, sizeof ipv6);
    return IsIpv6(address) ? IN6_IS_ADDR_MULTICAST(&ipv6.sin6_addr) : IN_MULTICAST(ntohl(ipv4.sin_addr.s_addr));
}

Address AnyAddress(uint16_t port, const Address &kin) {
    return IsIpv6(kin) ? FromIpv6(in6addr_any, port) : FromIpv4(htonl(INADDR_ANY), port);
}

Address WithPort(Address address, uint16_t port) {
    // In every IP family the port stands behind the family.
    static_assert(offsetof(sockaddr_in, sin_port) == offsetof(sockaddr_in6, sin6_port));
    const in_port_t wirePort = htons(port);
    std::memcpy(reinterpret_cast<char *>(&address.storage) + offsetof(sockaddr_in, sin_port), &wirePort,
                sizeof wirePort);
    return address;
}

namespace {

// An IPv6 socket leaves the ports of IPv4 to others.
int OpenSocket(const Address &kin, int type, int protocol) {
    UniqueSocket opened(socket(FamilyOf(kin), type | SOCK_CLOEXEC, protocol));
    const int on = 1;
    if (opened.IsOpen() && IsIpv6(kin) && setsockopt(opened.Get(), IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on) != 0)
        return -1;
    return opened.Release();
}

} // namespace

int OpenStreamSocket(const Address &kin) { return OpenSocket(kin, SOCK_STREAM, IPPROTO_TCP); }

int OpenDatagramSocket(const Address &kin) { return OpenSocket(kin, SOCK_DGRAM, IPPROTO_UDP); }

bool ConnectTo(int socket, const Address &address) { return connect(socket, Raw(address), address.length) == 0; }

bool IsConnected(int socket) {
    int error = 0;
    socklen_t length = sizeof error;
    if (getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &length) != 0) return false;
    errno = error;
    return error == 0;
}

namespace {

// Whether a connection that is being made was made in time.
bool AwaitConnection(int socket, int limitMs) {
    const uint64_t deadline = MonotonicMs() + static_cast<uint64_t>(limitMs);
    pollfd made = {socket, POLLOUT, 0};
    int ready = -1;
    do ready = poll(&made, 1, static_cast<int>(deadline - std::min(MonotonicMs(), deadline)));
    while (ready < 0 && errno == EINTR);
    if (ready > 0) return IsConnected(socket);
    errno = ETIMEDOUT;
    return false;
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

// ---- who is received from ----

namespace {

// Where the sender stands in a packet's network header (RFC 791, 3.1; RFC 8200, 3), and on the socket's side.
struct HostPlace {
    uint32_t inHeader;
    std::size_t inAddress;
    std::size_t words; // of 32 bits
};
constexpr HostPlace kIpv4Host = {12, offsetof(sockaddr_in, sin_addr), 1};
constexpr HostPlace kIpv6Host = {8, offsetof(sockaddr_in6, sin6_addr), 4};

constexpr std::size_t kMostHosts = 2;
constexpr std::size_t kLongestFilter = kMostHosts * (2 * kIpv6Host.words + 1) + 1;

} // namespace

// One host after the other: each word of it is loaded and compared, and what differs leads to the next one. Behind
// the last one the packet is dropped.
bool ReceiveOnlyFrom(int socket, std::span<const Address> hosts) {
    std::array<sock_filter, kLongestFilter> steps = {};
    std::size_t count = 0;
    for (const Address &host : hosts.first(std::min(hosts.size(), kMostHosts))) {
        const HostPlace &place = IsIpv6(host) ? kIpv6Host : kIpv4Host;
        for (std::size_t word = 0; word < place.words; ++word) {
            uint32_t value = 0;
            std::memcpy(&value, reinterpret_cast<const char *>(&host.storage) + place.inAddress + 4 * word, 4);
            const uint32_t at =
                static_cast<uint32_t>(SKF_NET_OFF) + static_cast<uint32_t>(place.inHeader + 4 * word);
            const auto toNext = static_cast<uint8_t>(2 * (place.words - word) - 1);
            steps[count++] = BPF_STMT(BPF_LD | BPF_W | BPF_ABS, at);
            steps[count++] = BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ntohl(value), 0, toNext);
        }
        steps[count++] = BPF_STMT(BPF_RET | BPF_K, UINT32_MAX); // all of it
    }
    steps[count++] = BPF_STMT(BPF_RET | BPF_K, 0);
    const sock_fprog program = {static_cast<unsigned short>(count), steps.data()};
    return setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) == 0;
}

// ---- multicast ----

namespace {

// Compares hosts, not ports.
bool IsSameHost(const Address &address, const sockaddr *other) {
    if (other == nullptr || other->sa_family != address.storage.ss_family) return false;
    const std::size_t offset =
        IsIpv6(address) ? offsetof(sockaddr_in6, sin6_addr) : offsetof(sockaddr_in, sin_addr);
    const std::size_t bytes = IsIpv6(address) ? sizeof(in6_addr) : sizeof(in_addr);
    return std::memcmp(reinterpret_cast<const char *>(&address.storage) + offset,
                       reinterpret_cast<const char *>(other) + offset, bytes) == 0;
}

unsigned FindInterfaceByAddress(const Address &address) {
    ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0) return 0;
    unsigned index = 0;
    for (const ifaddrs *at = list; at != nullptr && index == 0; at = at->ifa_next)
        if (IsSameHost(address, at->ifa_addr)) index = if_nametoindex(at->ifa_name);
    freeifaddrs(list);
    return index;
}

// False with ENODEV when there is none of that name or address; 0 leaves the choice to the system.
bool FindInterface(const char *nameOrAddress, unsigned &index) {
    index = 0;
    if (*nameOrAddress == '\0') return true;
    index = if_nametoindex(nameOrAddress);
    if (index == 0) index = FindInterfaceByAddress(ReadAnyAddress(nameOrAddress, 0));
    if (index == 0) errno = ENODEV;
    return index != 0;
}

template <typename Value> bool SetOption(int socket, int level, int name, const Value &value) {
    return setsockopt(socket, level, name, &value, sizeof value) == 0;
}

int LevelOf(const Address &address) { return IsIpv6(address) ? IPPROTO_IPV6 : IPPROTO_IP; }

// Kept: without further wishes an IPv4 group is joined by the call that systems without IGMPv3 know, too.
bool JoinPlainly(int socket, const Address &group) {
    ip_mreq membership = {};
    std::memcpy(&membership.imr_multiaddr,
                reinterpret_cast<const char *>(&group.storage) + offsetof(sockaddr_in, sin_addr), sizeof(in_addr));
    membership.imr_interface.s_addr = htonl(INADDR_ANY);
    return SetOption(socket, IPPROTO_IP, IP_ADD_MEMBERSHIP, membership);
}

} // namespace

bool JoinGroup(int socket, const Address &group, const MulticastWays &ways) {
    if (!IsIpv6(group) && ways.interface[0] == '\0' && ways.source[0] == '\0') return JoinPlainly(socket, group);
    group_source_req request = {};
    if (!FindInterface(ways.interface, request.gsr_interface)) return false;
    if (request.gsr_interface == 0) request.gsr_interface = ScopeOf(group);
    request.gsr_group = group.storage;
    if (ways.source[0] != '\0') {
        request.gsr_source = ReadAnyAddress(ways.source, 0).storage; // none is refused
        return SetOption(socket, LevelOf(group), MCAST_JOIN_SOURCE_GROUP, request);
    }
    group_req any = {};
    any.gr_interface = request.gsr_interface;
    any.gr_group = group.storage;
    return SetOption(socket, LevelOf(group), MCAST_JOIN_GROUP, any);
}

bool PrepareForGroups(int socket, const Address &group, const MulticastWays &ways) {
    unsigned index = 0;
    if (!FindInterface(ways.interface, index)) return false;
    const auto hops = static_cast<int>(ways.hops);
    const int off = 0;
    if (IsIpv6(group))
        return SetOption(socket, IPPROTO_IPV6, IPV6_MULTICAST_ALL, off) &&
               (index == 0 || SetOption(socket, IPPROTO_IPV6, IPV6_MULTICAST_IF, static_cast<int>(index))) &&
               (hops == 0 || SetOption(socket, IPPROTO_IPV6, IPV6_MULTICAST_HOPS, hops));
    ip_mreqn by = {};
    by.imr_ifindex = static_cast<int>(index);
    return SetOption(socket, IPPROTO_IP, IP_MULTICAST_ALL, off) &&
           (index == 0 || SetOption(socket, IPPROTO_IP, IP_MULTICAST_IF, by)) &&
           (hops == 0 || SetOption(socket, IPPROTO_IP, IP_MULTICAST_TTL, hops));
}

bool SharePort(int socket) { return SetOption(socket, SOL_SOCKET, SO_REUSEADDR, int{1}); }

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
