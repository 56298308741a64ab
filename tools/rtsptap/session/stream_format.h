// What a file needs to know of a stream: the description's view of it, or what its codec alone tells.
#pragma once

#include "session/session.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tool {

struct StreamFormat {
    Stream stream;
    bool isVideo = false;
    int32_t clockRate = 0;    // RTP timestamp units per second
    int32_t channels = 0;     // 0: not said
    std::string encodingName; // in capitals
    std::string parameters;   // a=fmtp, payload type included; empty without a description
    uint16_t port = 0;        // where captures say it went to; even
};

// The streams of a session that can be read, as its description has them.
std::vector<StreamFormat> FormatsOfSession(const Session &session, const std::vector<Stream> &streams);

// A stream that nobody described.
StreamFormat FormatOfCodec(const Stream &stream, uint16_t port);

// The description has H.264's parameter sets.
bool HasParameterSets(const StreamFormat &format);

// "sizelength=13; mode=AAC-hbr" as names in lower case and values.
std::vector<std::pair<std::string, std::string>> SplitParameters(const std::string &parameters);

} // namespace tool
