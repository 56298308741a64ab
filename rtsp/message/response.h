// A response: read from the text of a reply. Application thread.
#pragma once

#include "rtsp/message/header_list.h"

#include <array>
#include <cstdint>
#include <memory>

namespace rtsptap {

inline constexpr std::size_t kMostHeaders = 128; // where a rule permits more than kHeaderSlots

struct ResponseMsg {
    int32_t statusCode = 0;
    uint32_t cSeq = 0;            // 0 when the response has none
    uint32_t headerCount = 0;     // used slots, as a rule 0 to kHeaderSlots
    char *reasonPhrase = nullptr; // owned by whoever releases the response, free()
    char *version = nullptr;      // owned, free()
    std::array<RTSPHeaderStruct, kMostHeaders> headers = {};
};

// The value of the first header of that name, ignoring case, or null. The text may be cut up in place.
char *GetResponseHeader(ResponseMsg *responseMsg, const char *headerName);

// Releases slots, version and record; the reason phrase is released by the caller, just before.
void freeResponseMsg(ResponseMsg *responseMsg);

// Releases a whole response, the reason phrase included.
struct ResponseMsgDeleter {
    void operator()(ResponseMsg *responseMsg) const;
};
using ResponseMsgPtr = std::unique_ptr<ResponseMsg, ResponseMsgDeleter>;

class Dialect;
struct RecvBuffer;

// The caller owns the response and its reason phrase; null when the text is no response.
ResponseMsg *ClientParseMessage(const RecvBuffer *recvBuffer, const Dialect &dialect);

} // namespace rtsptap
