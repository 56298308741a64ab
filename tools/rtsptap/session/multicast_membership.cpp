#include "session/multicast_membership.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tool {

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
