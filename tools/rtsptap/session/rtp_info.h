// Where the streams of a session begin, as the reply to PLAY tells (RFC 2326, 12.33).
#pragma once

#include "session/session.h"

#include <cstdint>
#include <map>
#include <vector>

namespace tool {

// The RTP timestamp of the beginning by stream number, for streams of which the reply has one. Entries name streams
// by their control addresses; where none fits, by their order.
std::map<int32_t, uint32_t> FirstTimestamps(const Reply &reply, const Session &session,
                                            const std::vector<Stream> &streams);

} // namespace tool
