// One reading of a session description in progress, as the readers of its lines see it.
// Lives on ParseReceivedSDP's stack; application thread.
#pragma once

#include "platform/call_trace.h"

#include <cstdint>
#include <span>
#include <string_view>

namespace rtsptap {

struct RTSPClient;
struct RTSPStreamInfo;
struct SDPField;

struct SdpReading {
    RTSPClient &client;
    const CallTrace &trace;           // ParseReceivedSDP's: the readers' failure lines carry its name
    SDPField **listEnd;               // link that takes the next line
    RTSPStreamInfo *stream = nullptr; // current media section; null at session level
};

// A reader's result: RTSP_SUCCESS goes on with the next line, a negative code ends the reading with that
// code, and this one ends it with success; the lines that follow are ignored.
inline constexpr int32_t kEndEarly = 1;

struct LineReader {
    char letter; // type of the lines it reads
    int32_t (*read)(SdpReading &reading, std::string_view value);
};

// Lines of other types are kept in the list and not read.
inline int32_t ReadWith(std::span<const LineReader> readers, SdpReading &reading, char letter,
                        std::string_view value) {
    for (const LineReader &reader : readers)
        if (reader.letter == letter) return reader.read(reading, value);
    return RTSP_SUCCESS;
}

inline constexpr FailureText kNotANumber = "EXIT : %s :Problem in converting Ascii to Integer value \n";

} // namespace rtsptap
