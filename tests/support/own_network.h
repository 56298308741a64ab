// A network of the calling process's own, with loopback alone: nothing leaves the machine, ports are nobody else's
// and multicast groups can be joined.
#pragma once

#include <arpa/inet.h>
#include <cstring>
#include <net/if.h>
#include <net/route.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace rtsptap::test {

// False without the right to it. Not for a process that has threads already.
inline bool EnterOwnNetwork() {
    if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return false;
    ifreq loopback = {};
    std::strcpy(loopback.ifr_name, "lo");
    loopback.ifr_flags = IFF_UP | IFF_MULTICAST;
    const sockaddr_in groups = {AF_INET, 0, {htonl(0xE0000000)}, {}};
    const sockaddr_in mask = {AF_INET, 0, {htonl(0xF0000000)}, {}};
    rtentry route = {};
    std::memcpy(&route.rt_dst, &groups, sizeof groups);
    std::memcpy(&route.rt_genmask, &mask, sizeof mask);
    route.rt_flags = RTF_UP;
    route.rt_dev = loopback.ifr_name;
    const int any = socket(AF_INET, SOCK_DGRAM, 0);
    const bool isUp = ioctl(any, SIOCSIFFLAGS, &loopback) == 0 && ioctl(any, SIOCADDRT, &route) == 0;
    close(any);
    return isUp;
}

} // namespace rtsptap::test
