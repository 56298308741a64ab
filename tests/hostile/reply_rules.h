// What a method returns for the bytes of a reply, worked out from the rules that the manual gives: a second reading
// of them, which shares no code with the library.
#pragma once

#include "rtsptap.h"

#include <string>

namespace rtsptap::test {

struct Verdict {
    int32_t code = RTSP_SUCCESS;
    std::string text = {}; // of a failure, behind "EXIT : FUNCTION"; empty: not compared
    bool moves = false;    // the client goes to the method's next state, even if it fails
};

constexpr char kNoReply[] = " : No RTSP response received from server \n";

// The session's id is 12345678, and the connection closes behind the bytes.
Verdict Judge(const std::string &method, const std::string &bytes);

} // namespace rtsptap::test
