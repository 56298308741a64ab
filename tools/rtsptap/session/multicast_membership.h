// Makes the system hand the datagrams of a multicast group to this machine's sockets: those bound to every local
// address get what any socket of the machine has joined.
#pragma once

#include <string>

namespace tool {

class MulticastMembership {
public:
    explicit MulticastMembership(const std::string &group); // dotted, on the interface that routes there
    ~MulticastMembership();
    MulticastMembership(const MulticastMembership &) = delete;
    MulticastMembership &operator=(const MulticastMembership &) = delete;

    bool HasJoined() const { return joined_; } // else errno of the constructor tells

private:
    int socket_ = -1;
    bool joined_ = false;
};

} // namespace tool
