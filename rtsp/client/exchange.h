// One request and its reply. Every method function fills an Exchange and runs the row that describes its
// method: the checks in their order, then the steps in theirs. Application thread only.
#pragma once

#include "platform/printers.h"
#include "rtp/interleaved/connection.h"
#include "rtsp/message/credentials.h"
#include "rtsp/message/request.h"
#include "rtsptap.h"

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string_view>

namespace rtsptap {

class Dialect;
struct DescribeParts; // describe.cpp
struct Exchange;
struct ParameterParts; // parameters.cpp
struct PlayParts;      // play_range.cpp
struct RTSPClient;
struct SetupParts; // stream_sockets.h

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
    void (*undo)(Exchange &) = nullptr; // after a failure
};

struct ExchangeArguments {
    intptr_t clientHandle = 0;
    int32_t streamNumber = 0; // 1 and up; 0 for the whole session
    intptr_t headerList = 0;  // may be null
    char *responseBuff = nullptr;
    int32_t *responseSize = nullptr; // capacity of responseBuff, then the reply's length; may be null
};

struct Exchange {
    Exchange(const MethodDescriptor &descriptor, const ExchangeArguments &args)
        : method(descriptor), arguments(args), trace(descriptor.functionName, args.clientHandle) {}
    ~Exchange(); // releases request, response and replies and clears the client's fields
    Exchange(const Exchange &) = delete;
    Exchange &operator=(const Exchange &) = delete;

    const MethodDescriptor &method;
    const ExchangeArguments arguments;
    const ClientTrace trace;

    RTSPClient *client = nullptr;        // live, once CheckHandle has passed
    RecvBufferPtr reply;                 // the raw reply last received
    Verdict verdict = Verdict::kRefused; // on a 401 that was not answered

    // What only one method's steps share, on its function's stack.
    SetupParts *setup = nullptr;
    DescribeParts *describe = nullptr;
    ParameterParts *parameter = nullptr;
    PlayParts *play = nullptr;
};

// Runs the checks and steps of the exchange's row; the result is that of the exported function.
int32_t RunExchange(Exchange &exchange);

// ---- checks: each looks at one thing, the row says in which order ----

int32_t CheckHandle(Exchange &exchange);           // not null, and live
int32_t CheckHandleAndSession(Exchange &exchange); // the same, and a stream number of 0 or more
int32_t CheckHandleAndStream(Exchange &exchange);  // the same, and a stream number of 1 or more
int32_t CheckConnected(Exchange &exchange);
int32_t CheckStreamNumber(Exchange &exchange); // not above the client's stream count
int32_t CheckState(Exchange &exchange);
int32_t CheckHeaderList(Exchange &exchange);

// ---- steps that every method shares ----

int32_t GenerateRequest(Exchange &exchange);
int32_t SendRequest(Exchange &exchange);
int32_t ReceiveReply(Exchange &exchange);
// A 401 is answered, with what the program has set: the request goes out again, and the next reply is the one.
int32_t AnswerChallenge(Exchange &exchange);
int32_t ParseReply(Exchange &exchange);
// The session must be ours. Comes before the status: a strange session wins over an error status.
int32_t CompareSession(Exchange &exchange);
// 200 and other codes below 300 go on; 3xx, 4xx, 401 and 5xx end the exchange.
int32_t ClassifyStatus(Exchange &exchange);
// The client enters the state that its method's success leads to.
int32_t EnterState(Exchange &exchange);
int32_t CopyReply(Exchange &exchange);
// The stream addressed plays, or all do, and is received: what PLAY does on 200 (methods.cpp).
int32_t StartPlaying(Exchange &exchange);
// What the reply to PLAY says of when its streams begin, for clients that keep times.
void NotePlayReply(const Exchange &exchange);

// True while the parsed reply's status is 200.
bool IsOk(const Exchange &exchange);

// A step for status 200 only; any other status that got this far is a success without consequences.
template <Step step> int32_t OnOk(Exchange &exchange) { return IsOk(exchange) ? step(exchange) : RTSP_SUCCESS; }

// ---- parts of steps ----

// What the client says of itself in a request about stream number index + 1.
Requester RequesterOf(RTSPClient &client, int32_t index);

// What one receive delivered, at most readSize bytes; null on failure, with RTSP_RESPONSE_TIMEOUT in errCode
// after a time-out and errCode untouched otherwise. The caller owns the buffer.
RecvBuffer *ClientReadMessage(RTSPClient *rtspClient, uint32_t readSize, int32_t *errCode);

// The next reply, or null with RTSP_RESPONSE_TIMEOUT or RTSP_NO_RESPONSE in `failure`.
RecvBufferPtr ObtainReply(RTSPClient &client, RTSPMethod method, int32_t &failure);

// Makes a reply the client's last one, unless this exchange has one already.
void KeepReply(RTSPClient &client, RecvBufferPtr reply);

// Releases the client's parsed response with its reason phrase, if there is one.
void ReleaseResponse(RTSPClient &client);

// The identifier in a Session value: its first token before a ';', or all of it when there is none.
std::string_view SessionToken(std::string_view headerValue, const Dialect &dialect);

} // namespace rtsptap
