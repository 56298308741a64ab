// A session description (RFC 4566) without a server: what somebody sends to ports of this machine.
#pragma once

#include "session/stream_format.h"

#include <string>
#include <string_view>
#include <vector>

namespace tool {

struct SdpStream {
    StreamFormat format; // its port is the one to receive on
    std::string group;   // multicast address; empty: none
};

struct SdpFile {
    std::vector<SdpStream> streams;     // those that can be received
    std::vector<std::string> omissions; // the others, and why
};

// Reads the m=, a=rtpmap, a=fmtp and c= lines; of the payload types of a stream the first that can be received.
// Fails where the text is no description.
Outcome ParseSdp(std::string_view text, SdpFile &sdp);

// The same from a file; "-" is standard input.
Outcome ReadSdpFile(const std::string &path, SdpFile &sdp);

} // namespace tool
