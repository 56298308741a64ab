// What the tool knows of session descriptions (RFC 4566). Of a session the library tells it, stream by stream, and
// nothing is read twice. It has no function for a description in a file, which belongs to no session: that is read
// here.
#pragma once

#include "base/codecs.h"
#include "session/session.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tool {

// What a file needs to know of a stream: the description's view of it, or what its codec alone tells.
struct StreamFormat {
    Stream stream;
    const Codec *codec = nullptr; // never null
    int32_t payloadType = 0;
    int32_t clockRate = 0;    // RTP timestamp units per second
    int32_t channels = 0;     // 0: not said
    std::string encodingName; // in capitals
    std::string parameters;   // a=fmtp, payload type included; empty without a description
    uint16_t port = 0;        // where captures say it went to; even
};

// The streams of a session that can be read, as its description has them.
std::vector<StreamFormat> FormatsOfSession(const Session &session, const std::vector<Stream> &streams);

// A stream that nobody described; its codec is one of the table's.
StreamFormat FormatOfCodec(const Stream &stream, uint16_t port);

// Its codec cannot be decoded without parameter sets, and the description has none.
bool LacksParameterSets(const StreamFormat &format);

// "96 sizelength=13; mode=AAC-hbr" as names in lower case and values.
std::vector<std::pair<std::string, std::string>> SplitParameters(const std::string &parameters);

struct SdpStream {
    StreamFormat format; // its port is the one to receive on
    std::string group;   // multicast address; empty: none
};

struct SdpFile {
    std::vector<SdpStream> streams;     // those that can be received
    std::vector<std::string> omissions; // the others, and why
};

// A description without a server, of what somebody sends to ports of this machine: its m=, a=rtpmap, a=fmtp and c=
// lines; of the payload types of a stream the first that can be received. "-" is standard input. Fails where the
// text is no description.
Outcome ReadSdpFile(const std::string &path, SdpFile &sdp);

} // namespace tool
