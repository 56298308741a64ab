// RTSP through HTTP: requests go as base64 in the body of a POST, everything else comes in the body of the reply to
// a GET, on a connection each; a cookie tells the server that they belong together. A byte stream like any other,
// on plain sockets or on streams of another maker.
#pragma once

#include "rtp/interleaved/byte_stream.h"

namespace rtsptap {

// For connections to the host of `requestUrl`; `below` may be null. One use is the caller's. Null when memory is
// short.
StreamMaker *MakeTunnelMaker(StreamMaker *below, const char *requestUrl, const char *userAgent);

} // namespace rtsptap
