// A request: built, and written as text. Application thread.
#pragma once

#include "rtp/interleaved/connection.h"
#include "rtsp/message/header_list.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string_view>

namespace rtsptap {

inline constexpr std::size_t kVersionBytes = 9;

struct Authentication;
struct Connection;
struct Credentials;
class Dialect;

struct RequestMsg {
    uint32_t method = 0; // RTSPMethod
    uint32_t cSeq = 0;
    uint32_t headerCount = 0; // used slots, 0 to kHeaderSlots
    char *uri = nullptr;      // owned, free()
    char *version = nullptr;  // owned, free(): "RTSP/1.0"
    const char *body = "";    // a text of whoever builds the request
    bool isSecret = false;    // what it carries of Authorization is not printed, and wiped with it
    std::array<RTSPHeaderStruct, kHeaderSlots> headers = {};
};

// 0; RTSP_FAILURE on a null argument, a full message or no memory for the name; RTSP_NO_MEMORY for the value.
int32_t AddRequestHeader(RequestMsg *requestMsg, const char *headerName, const char *headerValue);
// The slot of the first header of that name, ignoring case, or null.
RTSPHeaderStruct *FindRequestHeader(RequestMsg &request, std::string_view name);
// Gives the header this value, in the place of another or behind the others. Results as above.
int32_t PutRequestHeader(RequestMsg &request, const char *name, const char *value);
void RemoveRequestHeader(RequestMsg &request, std::string_view name);
void freeRequestMsg(RequestMsg *requestMsg);

struct RequestMsgDeleter {
    void operator()(RequestMsg *requestMsg) const { freeRequestMsg(requestMsg); }
};
using RequestMsgPtr = std::unique_ptr<RequestMsg, RequestMsgDeleter>;

// A request without headers and without URI; null when memory is short.
RequestMsgPtr CreateRequestMsg(uint32_t method);

// Who sends a request.
struct Requester {
    const char *requestUrl;   // URI of the whole session
    const char *aggregateUrl; // the same once it is described; null: requestUrl
    const char *controlUrl;   // of the stream addressed; may be null
    int32_t streamCount;      // of the session
    const char *sessionId;
    const char *userAgent;
    const Authentication &authentication;
    const char *serverUrl;    // a URL on the server that it goes to
    Credentials *credentials; // what the program has set; null: nothing, and `authentication` counts
    const Dialect &dialect;
    std::atomic<uint32_t> &cSeq; // the last one used
};

// `stream` is the 0-based stream addressed, negative for the whole session. userList may be null.
// Null when the arguments are bad, memory is short or the method is not implemented.
RequestMsg *GenerateRequestMessage(const Requester &from, uint32_t method, intptr_t userList, int32_t stream);

// The request as text, with room for no more; null when memory is short.
RecvBufferPtr WriteRequest(const RequestMsg &request);
// The same request once more: with a number of its own, and with the Authorization of now. False when there is none
// to be had, and the request is as it was.
bool RenewRequest(const Requester &from, RequestMsg &request);

// Writes the request as text and sends it in one send, under the connection's sendLock. 0; RTSP_FAILURE when
// nothing could be written; RTSP_SEND_FAILED when the socket refused.
int32_t SendRequestMessage(Connection &connection, const RequestMsg *request);

} // namespace rtsptap
