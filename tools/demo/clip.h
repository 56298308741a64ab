// The clip in the program: five seconds of H.264 and PCMU, cut into what is sent at one time. Read only.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace demo {

using Bytes = std::span<const uint8_t>;

// What all packets with one time stamp carry: the NAL units of a picture, or one piece of sound.
struct Unit {
    std::vector<Bytes> parts;
    bool isKey = true; // one can begin here
};

struct Track {
    const char *media;       // m= line
    int payloadType;         // RFC 3551
    uint32_t clockHz;        // of the time stamps
    uint32_t ticksPerUnit;   // of that clock
    std::string description; // its other lines, without the control line
    std::vector<Unit> units; // all of equal length; the first is a key
    int64_t lateUs = 0;      // is held back so long
};

// Picture and sound; both tracks take the same time.
std::vector<Track> LoadClip();

} // namespace demo
