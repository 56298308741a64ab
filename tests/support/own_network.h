// A network of the calling process's own, with loopback alone: nothing leaves the machine, ports are nobody else's
// and multicast groups can be joined.
#pragma once

#include <cstdlib>
#include <sched.h>

namespace rtsptap::test {

// False without the right to it.
inline bool EnterOwnNetwork() {
    return unshare(CLONE_NEWNET) == 0 &&
           std::system("ip link set lo up multicast on && ip route add 224.0.0.0/4 dev lo") == 0;
}

} // namespace rtsptap::test
