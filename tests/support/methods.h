// The six methods as rows, for tests that try the same with each of them.
#pragma once

#include "rtsptap.h"

#include <vector>

namespace rtsptap::test {

struct Method {
    const char *name;
    const char *word; // in the function's name
    std::vector<int> allowedStates;
    RTSPClientState from; // one of them
    RTSPClientState next; // the state after a 200
    int32_t (*call)(intptr_t client, intptr_t list, char *buffer, int32_t *size);
};

template <auto function, int32_t stream>
int32_t OfStream(intptr_t client, intptr_t list, char *buffer, int32_t *size) {
    return function(client, stream, list, buffer, size);
}

// clang-format off
inline const Method kMethods[] = {
    {"OPTIONS", "Options", {0, 1, 2, 3, 4, 5}, CLIENT_READY_STATE, CLIENT_OPTIONS_SENT_STATE,
     RTSPClientSendOptionsRequest},
    {"DESCRIBE", "Describe", {0, 1}, CLIENT_OPTIONS_SENT_STATE, CLIENT_DESCRIBE_SENT_STATE,
     RTSPClientSendDescribeRequest},
    {"SETUP", "Setup", {2, 3}, CLIENT_DESCRIBE_SENT_STATE, CLIENT_READY_STATE,
     OfStream<RTSPClientSendSetupRequest, 1>},
    {"PLAY", "Play", {3, 4, 5}, CLIENT_READY_STATE, CLIENT_PLAYING_STATE, OfStream<RTSPClientSendPlayRequest, 0>},
    {"PAUSE", "Pause", {4}, CLIENT_PLAYING_STATE, CLIENT_PAUSE_STATE, OfStream<RTSPClientSendPauseRequest, 0>},
    {"TEARDOWN", "Teardown", {4, 5}, CLIENT_PAUSE_STATE, CLIENT_INIT_STATE, RTSPClientSendTeardownRequest},
};
// clang-format on

} // namespace rtsptap::test
