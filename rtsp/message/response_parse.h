// Reads the text of a reply into a ResponseMsg: status line, then every line with a colon as a header.
#pragma once

namespace rtsptap {

struct RecvBuffer;
struct ResponseMsg;

// The caller owns the response and its reason phrase; null when the text is no response.
ResponseMsg *ClientParseMessage(const RecvBuffer *recvBuffer);

} // namespace rtsptap
