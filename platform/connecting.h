// From a host's name to a connection: its addresses, and the first of them that answers (RFC 8305). Any thread.
#pragma once

#include "platform/address.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace rtsptap {

inline constexpr std::size_t kMostAddresses = 16; // of one host that are tried

struct AddressList {
    std::array<Address, kMostAddresses> items = {};
    std::size_t count = 0;
};

// The addresses of a name, or of an address as text, in the order in which they are to be tried: the system's, but
// with the families in turn. Empty when there is none. Takes as long as the system's resolver does, which nobody
// can interrupt. On a fiber a thread asks the resolver, and is left to itself after `limitMs`; 0: no limit.
AddressList FindAddresses(const char *host, uint16_t port, int limitMs = 0);

// Tries one after the other, each some time after the one before or as soon as that has failed, until one is
// connected; gives up all others. The socket, which blocks, or -1 with errno. At most `limitMs`, which signals do
// not end; 0: as long as the system lets it.
int ConnectToFirst(const AddressList &addresses, int limitMs, Address &connected);

} // namespace rtsptap
