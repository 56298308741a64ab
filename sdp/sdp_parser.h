// Reads a session description (RFC 4566) into lines and stream records. Application thread.
#pragma once

#include <cstdint>
#include <string_view>

namespace rtsptap {

struct MediaSession;
struct SDPField;

// Whom a description describes.
struct DescribedSession {
    MediaSession &session;  // gets a stream for each media section
    SDPField *&lines;       // gets the session-level lines, behind those it has
    const char *requestUrl; // that DESCRIBE asked for
    const char *path;       // of it, where the program gave server, port and path; else empty
    bool isOpened; // by an URL: control URLs are joined, and addresses may be of IPv6, whatever the rules are
    std::string_view contentBase; // Content-Base or Content-Location of the reply; empty without (RFC 2326, C.1.1)
    char *&aggregateUrl; // owned, free(): becomes the URL of the session; null: that of host, port and path
};

// Reads `text`, which a terminator follows. 0 on success, also when a malformed attribute ends the reading early;
// RTSP_FAILURE, RTSP_BAD_NUMBER, RTSP_MUTEX_FAILED or RTSP_NO_MEMORY otherwise. Streams made so far stay, whatever
// the result.
int32_t ParseReceivedSDP(std::string_view text, const DescribedSession &to);

} // namespace rtsptap
