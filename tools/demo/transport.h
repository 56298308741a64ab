// The Transport header of SETUP (RFC 2326, 12.39).
#pragma once

#include "session.h"

namespace demo {

struct Ways {
    bool udp;
    bool tcp;
};

// Takes the first of the player's proposals that can be met, and sets the stream's addresses or channels. The
// beginning of the reply's header, with a semicolon at its end; empty when none can be met.
std::string ChooseTransport(std::string_view proposals, Ways offered, const sockaddr_in &peer,
                            const Session &session, Stream &stream);

} // namespace demo
