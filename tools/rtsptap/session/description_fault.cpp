#include "session/description_fault.h"

#include "base/secrets.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>

namespace tool {
namespace {

using Text = std::string;

// What is behind the first ":"; empty without one.
Text Behind(const Text &text, char mark) {
    const std::size_t at = text.find(mark);
    return at == text.npos ? "" : text.substr(at + 1);
}

const char *FaultOfAddress(const Text &value, bool) {
    return value.find("IP4") == value.npos ? "only IP4 is supported here" : nullptr;
}

const char *FaultOfTime(const Text &value, bool) {
    return std::atoi(Behind(value, ' ').c_str()) < 0 ? "the stop time must not be below 0" : nullptr;
}

const char *FaultOfBandwidth(const Text &value, bool) {
    constexpr std::size_t kNumber = 3; // behind two letters and a colon
    if (std::atoi(Behind(value, ':').c_str()) < 1) return "bandwidth must be at least 1";
    const bool isThere = value.size() > kNumber && std::atoi(value.c_str() + kNumber) != 0;
    return isThere ? nullptr : "bandwidth must follow two letters and a colon";
}

// rtpmap:96 H264/90000, of audio with channels: rtpmap:97 L16/44100/2
const char *FaultOfMap(const Text &value, bool isAudio) {
    constexpr std::size_t kLongestName = 32;
    const Text type = Behind(value, ':');
    const Text encoding = Behind(type, ' ');
    const std::size_t slash = encoding.find('/');
    if (value.find(':') == value.npos) return "the payload type is missing";
    if (std::atoi(type.c_str()) == 0 && type.rfind('0', 0) != 0) return "the payload type is no number";
    if (slash == encoding.npos) return "it must end in NAME/CLOCK";
    if (slash > kLongestName) return "the encoding name is longer than 32 characters";
    const Text clock = encoding.substr(slash + 1);
    if (std::atoi(clock.c_str()) == 0) return "the clock rate must not be 0";
    const bool hasChannels = isAudio && clock.find('/') != clock.npos;
    return hasChannels && std::atoi(Behind(clock, '/').c_str()) == 0 ? "the number of channels must not be 0"
                                                                     : nullptr;
}

const char *FaultOfParameters(const Text &, bool) { return nullptr; }

const char *FaultOfFrameRate(const Text &value, bool) {
    const Text rate = Behind(value, ':');
    return rate != "0.0" && std::atof(rate.c_str()) == 0 ? "the frame rate must not be 0" : nullptr;
}

const char *FaultOfControl(const Text &value, bool) {
    constexpr std::size_t kLongest = 256;
    if (value.find(':') == value.npos) return "the address is missing";
    return Behind(value, ':').size() > kLongest ? "the address is longer than 256 characters" : nullptr;
}

struct LineRule {
    bool inMedia;     // behind an m= line
    const char *name; // of the line
    const char *mark; // found anywhere in its value
    const char *(*fault)(const Text &value, bool isAudio);
};

// In the order in which they are tried: the first that matches decides.
constexpr LineRule kRules[] = {
    {false, "o", "", FaultOfAddress},
    {false, "c", "", FaultOfAddress},
    {false, "t", "", FaultOfTime},
    {true, "b", "", FaultOfBandwidth},
    {true, "a", "rtpmap", FaultOfMap},
    {true, "a", "fmtp", FaultOfParameters},
    {true, "a", "framerate", FaultOfFrameRate},
    {true, "a", "control", FaultOfControl},
};

} // namespace

std::string FaultOfDescription(std::string_view description) {
    constexpr std::string_view kLineEnds = "\r\n";
    bool inMedia = false;
    bool isAudio = false;
    for (std::size_t at = 0; (at = description.find_first_not_of(kLineEnds, at)) != description.npos;) {
        const std::size_t end = std::min(description.find_first_of(kLineEnds, at), description.size());
        const std::string line(description.substr(at, end - at));
        const std::string value = line.substr(std::min<std::size_t>(2, line.size()));
        at = end;
        if (line[0] == 'm') {
            inMedia = true;
            isAudio = value.find("audio") != value.npos;
        }
        const auto *const rule = std::find_if(std::begin(kRules), std::end(kRules), [&](const LineRule &row) {
            return row.inMedia == inMedia && row.name[0] == line[0] && value.find(row.mark) != value.npos;
        });
        if (rule == std::end(kRules)) continue;
        if (const char *fault = rule->fault(value, isAudio)) return Presentable(line) + ": " + fault;
    }
    return "";
}

} // namespace tool
