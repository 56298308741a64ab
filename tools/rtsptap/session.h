// One client of the library, released with the object: every command goes through here, by exported functions only.
#pragma once

#include "outcome.h"
#include "rtsptap.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tool {

// Where to and as whom; the address is dotted IPv4.
struct Target {
    std::string address;
    uint16_t port = 554;
    std::string path;
    std::string user;
    std::string password;
    DataProto transport = DATA_PROTO_UDP;
};

// A port to receive on without RTSP; no codec: this medium is not received.
struct ListenPort {
    int32_t codecType = 0;
    uint16_t port = 0;
};

struct Stream {
    int32_t number = 0; // from 1, in the order of the description
    std::string codec;
    int32_t codecType = 0;
    bool isReadable = false; // has a code, and no earlier stream has the same one
};

// Gives a packet back to the stream it was taken from.
struct GiveBack {
    intptr_t client = 0;
    int32_t codecType = 0;
    void operator()(RTPStreamData *packet) const { RTPClientFreeRTPStreamData(client, packet, codecType); }
};
using Packet = std::unique_ptr<RTPStreamData, GiveBack>;

class Session {
public:
    Session();
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    // From nothing to playing in one call: RTSP_SUCCESS, RTSP_NOT_CONNECTED, or RTSP_SEND_FAILED when a step
    // failed, whichever it was.
    int32_t PlayAtOnce(const Target &target);

    // The same, method by method: says which one failed and why, and leaves out streams without a codec type.
    Outcome PlayStepByStep(const Target &target);

    // Receives on local ports what somebody else sends there.
    Outcome Listen(const ListenPort &video, const ListenPort &audio);

    std::vector<Stream> Streams() const;

    // What the description says of a stream; the session's.
    const RTSPStreamDescription *Description(int32_t number) const { return RTSPClientGetSDPInfo(client_, number); }

    // The next packet, or none when the library's wait of about five seconds has passed. One thread per codec type.
    Packet Take(int32_t codecType) const;

    bool HasPacket(int32_t codecType) const; // Take would not wait

    // Ends the session at the server; packets still queued can no longer be taken.
    Outcome Teardown();

private:
    int32_t Connect(const Target &target);

    intptr_t client_;
};

} // namespace tool
