// Headers that requests carry beside the library's own.
#pragma once

#include "base/outcome.h"
#include "rtsptap.h"

#include <map>
#include <string>
#include <vector>

namespace tool {

struct Header {
    std::string name;
    std::string value;
};

using MethodHeaders = std::map<RTSPMethod, std::vector<Header>>;

// Every method that a session sends, in the order in which it does.
constexpr RTSPMethod kSessionMethods[] = {RTSP_OPTIONS, RTSP_DESCRIBE, RTSP_SETUP, RTSP_PLAY, RTSP_TEARDOWN};

const char *NameOf(RTSPMethod method); // of one of them, as requests have it

// "METHOD: Name: value" as one more header of that method. The texts of failures never repeat it: it may be a
// secret.
Outcome AddHeaderOption(const std::string &text, MethodHeaders &headers);

} // namespace tool
