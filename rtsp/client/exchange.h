// One request and its reply. Every method function fills an Exchange and runs the row that describes its
// method: the checks in their order, then the steps in theirs. Application thread only.
#pragma once

#include "platform/printers.h"
#include "platform/text.h"
#include "rtp/interleaved/connection.h"
#include "rtsptap.h"

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string_view>

namespace rtsptap {

struct Exchange;
struct RTSPClient;
struct RTSPStreamInfo;

using Step = int32_t (*)(Exchange &); // 0: go on; anything else: the call's result

using StateSet = uint32_t; // one bit per client state
consteval StateSet States(std::initializer_list<RTSPClientState> states) {
    StateSet set = 0;
    for (const RTSPClientState state : states) set |= 1U << state;
    return set;
}

struct MethodDescriptor {
    const char *functionName;
    RTSPMethod method;
    StateSet allowedStates;
    bool answersChallenge; // a 401 stores its challenge and gives RTSP_UNAUTHORIZED
    std::span<const Step> checks;
    std::span<const Step> steps;
    const char *sending; // milestone printed at entry
    FailureText badState;
    FailureText badHeaderList;
    FailureText notGenerated;
};

struct ExchangeArguments {
    intptr_t clientHandle = 0;
    int32_t streamNumber = 0; // 1 and up; 0 for the whole session
    intptr_t headerList = 0;  // may be null
    char *responseBuff = nullptr;
    int32_t *responseSize = nullptr; // capacity of responseBuff, then the reply's length; may be null
};

// Which sockets of the stream a failure closes (SETUP).
enum class Undo { kNothing, kRtpSocket, kBothSockets };

struct Exchange {
    Exchange(const MethodDescriptor &descriptor, const ExchangeArguments &args)
        : method(descriptor), arguments(args), trace(descriptor.functionName) {}
    ~Exchange(); // releases request, response and replies and clears the client's fields
    Exchange(const Exchange &) = delete;
    Exchange &operator=(const Exchange &) = delete;

    const MethodDescriptor &method;
    const ExchangeArguments arguments;
    const CallTrace trace;

    RTSPClient *client = nullptr;     // live, once CheckHandle has passed
    RTSPStreamInfo *stream = nullptr; // SETUP: the stream set up
    RecvBufferPtr reply;              // the raw reply last received
    Undo undo = Undo::kNothing;

    uint16_t userClientPort = 0;   // SETUP: from the user's Transport header; 0 when not given
    bool hasUserTransport = false; // SETUP

    HeapText sdpPart;             // DESCRIBE: the description as far as the first reply carried it
    int32_t sdpPartLength = 0;    // DESCRIBE
    int32_t firstReplyLength = 0; // DESCRIBE: bytes of the first reply in responseBuff
};

// Runs the checks and steps of the exchange's row; the result is that of the exported function.
int32_t RunExchange(Exchange &exchange);

// ---- steps that every method shares ----
int32_t GenerateRequest(Exchange &exchange);
int32_t SendRequest(Exchange &exchange);
int32_t ReceiveReply(Exchange &exchange);
int32_t ParseReply(Exchange &exchange);
int32_t CopyReply(Exchange &exchange);

// Makes a reply the client's last one, unless this exchange has one already.
void KeepReply(RTSPClient &client, RecvBufferPtr reply);

// Releases the client's parsed response with its reason phrase, if there is one.
void ReleaseResponse(RTSPClient &client);

// True while the parsed reply's status is 200.
bool IsOk(const Exchange &exchange);

// A step for status 200 only; any other status that got this far is a success without consequences.
template <Step step> int32_t OnOk(Exchange &exchange) { return IsOk(exchange) ? step(exchange) : RTSP_SUCCESS; }

// From here on a failure closes these sockets of the stream.
template <Undo undo> int32_t OnFailureClose(Exchange &exchange) {
    exchange.undo = undo;
    return RTSP_SUCCESS;
}

int32_t CheckHandle(Exchange &exchange);           // not null, and live
int32_t CheckHandleAndSession(Exchange &exchange); // the same, and a stream number of 0 or more
int32_t CheckHandleAndStream(Exchange &exchange);  // the same, and a stream number of 1 or more
int32_t CheckConnected(Exchange &exchange);
int32_t CheckStreamNumber(Exchange &exchange); // not above the client's stream count
int32_t CheckState(Exchange &exchange);
int32_t CheckHeaderList(Exchange &exchange);

// The session must be ours. Comes before the status: a strange session wins over an error status.
int32_t CompareSession(Exchange &exchange);

// 200 and other codes below 300 go on; 3xx, 4xx, 401 and 5xx end the exchange.
int32_t ClassifyStatus(Exchange &exchange);

// The identifier in a Session value: its first token before a ';', or all of it when there is none.
std::string_view SessionToken(std::string_view headerValue);

} // namespace rtsptap
