#include "rtsp/client/progress.h"

#include "platform/fiber.h"
#include "platform/printers.h"
#include "platform/text.h"
#include "platform/waiting.h"
#include "rtp/loop/watch.h"
#include "rtsp/client/client.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

namespace rtsptap {

struct Operation {
    ~Operation() {
        if (text != nullptr) explicit_bzero(text.get(), strlen(text.get())); // an URL may have a password
    }

    RTSPClient *client = nullptr;
    int32_t (*run)(Operation &operation) = nullptr;
    uint32_t interruptsBefore = 0; // of the session, when it began
    int32_t result = RTSP_FAILURE;
    int error = 0; // errno behind it

    // ---- What it is called with ----
    HeapText text; // an URL, or the request's range
    int32_t streamNumber = 0;
    int32_t method = RTSP_OPTIONS;
    intptr_t headerList = 0;
    char *address = nullptr;
    bool hasRequest = false;
    RTSPTapPlayRequest request = {};
    RTSPTapPlayReply *reply = nullptr;
};

namespace {

intptr_t HandleOf(const Operation &operation) { return reinterpret_cast<intptr_t>(operation.client); }

// ---- the operations: what a program would call that waits ----

int32_t Open(Operation &operation) { return RTSPTapOpen(HandleOf(operation), operation.text.get()); }

int32_t Connect(Operation &operation) {
    return RTSPTapConnect(HandleOf(operation), operation.text.get(), operation.address);
}

int32_t SetUp(Operation &operation) { return RTSPTapSetup(HandleOf(operation), operation.streamNumber); }

int32_t Play(Operation &operation) {
    const RTSPTapPlayRequest *const request = operation.hasRequest ? &operation.request : nullptr;
    return RTSPTapStart(HandleOf(operation), request, operation.reply);
}

int32_t Pause(Operation &operation) {
    return RTSPClientSendPauseRequest(HandleOf(operation), 0, 0, nullptr, nullptr);
}

int32_t TearDown(Operation &operation) { return RTSPTapTeardown(HandleOf(operation)); }

int32_t SendMethod(Operation &operation) {
    const intptr_t handle = HandleOf(operation);
    const int32_t stream = operation.streamNumber;
    const intptr_t headers = operation.headerList;
    switch (operation.method) {
    case RTSP_OPTIONS:
        return RTSPClientSendOptionsRequest(handle, headers, nullptr, nullptr);
    case RTSP_DESCRIBE:
        return RTSPClientSendDescribeRequest(handle, headers, nullptr, nullptr);
    case RTSP_SETUP:
        return RTSPClientSendSetupRequest(handle, stream, headers, nullptr, nullptr);
    case RTSP_PLAY:
        return RTSPClientSendPlayRequest(handle, stream, headers, nullptr, nullptr);
    case RTSP_PAUSE:
        return RTSPClientSendPauseRequest(handle, stream, headers, nullptr, nullptr);
    default:
        return RTSPClientSendTeardownRequest(handle, headers, nullptr, nullptr);
    }
}

void RunOperation(void *argument) {
    auto &operation = *static_cast<Operation *>(argument);
    operation.result = operation.run(operation);
    operation.error = LastError();
}

int32_t FailBusy(const CallTrace &trace) {
    return trace.Fail(RTSPTAP_BUSY, "EXIT : %s :An operation of the client is pending\n");
}

// ---- from one wait to the next ----

void GoOn(RTSPClient &client) {
    Fiber &fiber = *client.media.pending;
    if (!ResumeFiber(fiber)) return SettlePending(client.media);
    const std::unique_ptr<const Operation> ended(std::exchange(client.operation, nullptr));
    const bool isInterrupted = IsCalledOff(fiber) && ended->result != RTSP_SUCCESS;
    client.operationResult = isInterrupted ? RTSPTAP_INTERRUPTED : ended->result;
    client.operationError = ended->error;
    FreeFiber(std::exchange(client.media.pending, nullptr));
    client.media.loop.hasNews = true;
    SettlePending(client.media);
}

int32_t Tell(RTSPClient &client) {
    if (std::exchange(client.media.loop.hasNews, false)) SettlePending(client.media);
    SetLastError(client.operationError);
    return client.operationResult;
}

int32_t Begin(const CallTrace &trace, RTSPClient &client, std::unique_ptr<Operation> operation) {
    if (client.media.pending != nullptr) return FailBusy(trace);
    Fiber *const fiber = operation != nullptr ? MakeFiber(RunOperation, operation.get()) : nullptr;
    if (fiber == nullptr) return trace.Fail(RTSP_NO_MEMORY, "EXIT : %s :Memory Allocation Failed\n");
    operation->client = &client;
    operation->interruptsBefore = client.media.interrupts;
    client.operation = operation.release();
    client.media.pending = fiber;
    GoOn(client);
    return RTSP_SUCCESS;
}

std::unique_ptr<Operation> Make(int32_t (*run)(Operation &operation), const char *text = nullptr) {
    std::unique_ptr<Operation> operation(new (std::nothrow) Operation{});
    if (operation == nullptr) return nullptr;
    operation->run = run;
    if (text != nullptr) operation->text = DuplicateText(text);
    return text == nullptr || operation->text != nullptr ? std::move(operation) : nullptr;
}

int32_t BeginPlain(const CallTrace &trace, intptr_t clientHandle, int32_t (*run)(Operation &operation),
                   int32_t streamNumber = 0) {
    RTSPClient *const client = LiveClient(clientHandle);
    if (client == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid client handle\n");
    std::unique_ptr<Operation> operation = Make(run);
    if (operation != nullptr) operation->streamNumber = streamNumber;
    return Begin(trace, *client, std::move(operation));
}

// As much of the record as there is; its range is copied.
std::unique_ptr<Operation> MakePlay(const RTSPTapPlayRequest *from, RTSPTapPlayReply *reply) {
    RTSPTapPlayRequest request = {};
    if (from != nullptr) memcpy(&request, from, std::min<std::size_t>(from->recordSize, sizeof request));
    std::unique_ptr<Operation> operation = Make(Play, request.range);
    if (operation == nullptr) return nullptr;
    operation->hasRequest = from != nullptr;
    operation->request = request;
    operation->request.range = operation->text.get();
    operation->reply = reply;
    return operation;
}

} // namespace

int32_t RefuseWhilePending(const CallTrace &trace, const RTSPClient &client) {
    const Fiber *const pending = client.media.pending;
    return pending == nullptr || pending == CurrentFiber() ? RTSP_SUCCESS : FailBusy(trace);
}

void AbandonOperation(RTSPClient &client) {
    if (client.media.pending == nullptr) return;
    CallOff(*client.media.pending);
    GoOn(client); // to its end, as no wait is one any more
}

} // namespace rtsptap

using namespace rtsptap;

int32_t RTSPTapBeginOpen(intptr_t clientHandle, const char *url) {
    const ClientTrace trace(__func__, clientHandle);
    RTSPClient *const client = LiveClient(clientHandle);
    if (client == nullptr || url == nullptr)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    return Begin(trace, *client, Make(Open, url));
}

int32_t RTSPTapBeginConnect(intptr_t clientHandle, const char *url, char *address) {
    const ClientTrace trace(__func__, clientHandle);
    RTSPClient *const client = LiveClient(clientHandle);
    if (client == nullptr || url == nullptr)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    std::unique_ptr<Operation> operation = Make(Connect, url);
    if (operation != nullptr) operation->address = address;
    return Begin(trace, *client, std::move(operation));
}

int32_t RTSPTapBeginMethod(intptr_t clientHandle, int32_t method, int32_t streamNumber, intptr_t headerList) {
    const ClientTrace trace(__func__, clientHandle);
    RTSPClient *const client = LiveClient(clientHandle);
    if (client == nullptr || method < RTSP_OPTIONS || method > RTSP_PAUSE)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    std::unique_ptr<Operation> operation = Make(SendMethod);
    if (operation != nullptr) {
        operation->method = method;
        operation->streamNumber = streamNumber;
        operation->headerList = headerList;
    }
    return Begin(trace, *client, std::move(operation));
}

int32_t RTSPTapBeginSetup(intptr_t clientHandle, int32_t streamNumber) {
    const ClientTrace trace(__func__, clientHandle);
    return BeginPlain(trace, clientHandle, SetUp, streamNumber);
}

int32_t RTSPTapBeginPlay(intptr_t clientHandle, const RTSPTapPlayRequest *request, RTSPTapPlayReply *reply) {
    const ClientTrace trace(__func__, clientHandle);
    RTSPClient *const client = LiveClient(clientHandle);
    if (client == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid client handle\n");
    return Begin(trace, *client, MakePlay(request, reply));
}

int32_t RTSPTapBeginPause(intptr_t clientHandle) {
    const ClientTrace trace(__func__, clientHandle);
    return BeginPlain(trace, clientHandle, Pause);
}

int32_t RTSPTapBeginTeardown(intptr_t clientHandle) {
    const ClientTrace trace(__func__, clientHandle);
    return BeginPlain(trace, clientHandle, TearDown);
}

int32_t RTSPTapProgress(intptr_t clientHandle) {
    const CallTrace trace(__func__);
    RTSPClient *const client = LiveClient(clientHandle);
    if (client == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid client handle\n");
    Fiber *const pending = client->media.pending;
    if (pending == nullptr) return Tell(*client);
    if (IsOnFiber()) return RTSPTAP_PENDING; // out of a callback of its own
    if (client->media.interrupts != client->operation->interruptsBefore) CallOff(*pending);
    if (IsDue(*pending)) GoOn(*client);
    return client->media.pending != nullptr ? RTSPTAP_PENDING : Tell(*client);
}
