// One reading of a description in progress, as the readers of lines share it. On ParseReceivedSDP's stack; inside
// this folder only.
#pragma once

#include "dialect/dialect.h"
#include "platform/printers.h"
#include "rtp/stream.h"
#include "sdp/media_formats.h"
#include "sdp/sdp_parser.h"

#include <string_view>

namespace rtsptap {

struct SdpReading {
    const DescribedSession &to;
    const Dialect &dialect;           // the session's
    const CallTrace &trace;           // ParseReceivedSDP's: the readers' failure lines carry its name
    SDPField **listEnd;               // link that takes the next line
    HeapText base = {};               // what control URLs are relative to; null: host, port and path of `to`
    HeapText aggregate = {};          // of the whole session; null: likewise
    RTSPStreamInfo *stream = nullptr; // current media section; null at session level
    MediaFormats formats = {};        // of its m= line
    int32_t sections = 0;             // so far
    bool sectionIsOpen = false;       // the current one is still to be finished
    bool hasControl = false;          // it names one, readable or not
    bool configIsRead = false;        // its parameters have met its codec
};

// A reader's result: RTSP_SUCCESS goes on with the next line, a negative code ends the reading with that
// code, and this one ends it with success; the lines that follow are ignored.
inline constexpr int32_t kEndEarly = 1;

inline constexpr FailureText kNotANumber = "EXIT : %s :Problem in converting Ascii to Integer value \n";

// What the reader says of its line, unless the line may be passed over: then nothing of it stays.
int32_t ReadForgiving(SdpReading &reading, int32_t (*read)(SdpReading &reading, std::string_view value),
                      std::string_view value);

// ---- attributes of a media section: attributes.cpp ----

int32_t ReadAttribute(SdpReading &reading, std::string_view value);

// The same at session level.
int32_t ReadSessionAttribute(SdpReading &reading, std::string_view value);

// When all lines of the section have been read, or no more of them will be: what depends on several of them.
// Without an open section nothing.
int32_t FinishSection(SdpReading &reading);

// When no section follows: the URLs that depend on all of them.
void FinishControlUrls(SdpReading &reading);

} // namespace rtsptap
