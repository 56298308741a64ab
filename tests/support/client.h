// A client as a careful application drives it: of the scripted server in the tests, of the answering one in the
// soak.
#pragma once

#include "rtsptap_extended.h"

#include <string>
#include <utility>

namespace rtsptap::test {

inline constexpr uint32_t kUdp = DATA_PROTO_UDP;
inline constexpr uint32_t kTcp = DATA_PROTO_TCP;

// Created, with the sizes of its buffers set; destroyed at the end. Used by one thread at a time.
class Client {
public:
    explicit Client(int32_t ringBytes = 1 << 20, uint32_t dataProto = kUdp, std::string pathOfUrl = "live")
        : proto(dataProto), path(std::move(pathOfUrl)), handle(RTSPClientCreate()) {
        RTPClientSetAudioVideoBufferSize(handle, ringBytes, ringBytes);
    }
    ~Client() { Destroy(); }
    Client(Client &&) = delete; // nor copied
    operator intptr_t() const { return handle; }

    int32_t Connect() { return RTSPClientConnect(handle, "127.0.0.1", serverPort, path.c_str(), proto, 0); }
    int32_t Options() { return RTSPClientSendOptionsRequest(handle, 0, nullptr, nullptr); }
    int32_t Describe() { return RTSPClientSendDescribeRequest(handle, 0, nullptr, nullptr); }
    int32_t Setup(int32_t stream) { return RTSPClientSendSetupRequest(handle, stream, 0, nullptr, nullptr); }
    int32_t Play(int32_t stream = 0) { return RTSPClientSendPlayRequest(handle, stream, 0, nullptr, nullptr); }
    int32_t Pause(int32_t stream = 0) { return RTSPClientSendPauseRequest(handle, stream, 0, nullptr, nullptr); }
    int32_t Teardown() { return RTSPClientSendTeardownRequest(handle, 0, nullptr, nullptr); }
    int32_t Destroy() { return handle > 0 ? RTSPClientDestroy(std::exchange(handle, 0)) : 0; }

    // The way to a state, from a client that is not connected; the first failure.
    int32_t Reach(RTSPClientState state) {
        int32_t result = Connect();
        const auto then = [&](bool isOnTheWay, auto step) {
            return result = isOnTheWay && result == 0 ? step() : result;
        };
        then(state == CLIENT_OPTIONS_SENT_STATE, [this] { return Options(); });
        then(state >= CLIENT_DESCRIBE_SENT_STATE, [this] { return Describe(); });
        for (const int32_t stream : {1, 2}) then(state >= CLIENT_READY_STATE, [=, this] { return Setup(stream); });
        then(state >= CLIENT_PLAYING_STATE, [this] { return Play(); });
        return then(state >= CLIENT_PAUSE_STATE, [this] { return Pause(); });
    }

    uint32_t proto;
    uint16_t serverPort = 0;

private:
    const std::string path;
    intptr_t handle;
};

} // namespace rtsptap::test
