// What a method returns for the bytes of a reply, worked out from the rules that the manual gives: a second reading
// of them, which shares no code with the library.
#pragma once

#include <cstdint>
#include <string>

namespace rtsptap::test {

// The session's id is 12345678, and the connection closes behind the bytes. `amongFrames`: the interleaved thread
// reads them, of which the first four must be RTSP.
int32_t CodeFor(const std::string &method, const std::string &bytes, bool amongFrames);

} // namespace rtsptap::test
