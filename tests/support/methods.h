// The six methods as rows, for tests that try the same with each of them.
#pragma once

#include "rtsptap.h"

namespace rtsptap::test {

struct Method {
    const char *name;
    const char *word;     // in the function's name
    RTSPClientState from; // one in which it is allowed
    RTSPClientState next; // the state after a 200
    int32_t (*call)(intptr_t client, intptr_t list, char *buffer, int32_t *size);
};

template <auto function, int32_t stream>
int32_t OfStream(intptr_t client, intptr_t list, char *buffer, int32_t *size) {
    return function(client, stream, list, buffer, size);
}

inline const Method kMethods[] = {
    {"OPTIONS", "Options", CLIENT_READY_STATE, CLIENT_OPTIONS_SENT_STATE, RTSPClientSendOptionsRequest},
    {"DESCRIBE", "Describe", CLIENT_OPTIONS_SENT_STATE, CLIENT_DESCRIBE_SENT_STATE, RTSPClientSendDescribeRequest},
    {"SETUP", "Setup", CLIENT_DESCRIBE_SENT_STATE, CLIENT_READY_STATE, OfStream<RTSPClientSendSetupRequest, 1>},
    {"PLAY", "Play", CLIENT_READY_STATE, CLIENT_PLAYING_STATE, OfStream<RTSPClientSendPlayRequest, 0>},
    {"PAUSE", "Pause", CLIENT_PLAYING_STATE, CLIENT_PAUSE_STATE, OfStream<RTSPClientSendPauseRequest, 0>},
    {"TEARDOWN", "Teardown", CLIENT_PAUSE_STATE, CLIENT_INIT_STATE, RTSPClientSendTeardownRequest},
};

} // namespace rtsptap::test
