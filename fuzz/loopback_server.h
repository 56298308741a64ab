// An RTSP server on 127.0.0.1 for a target that calls the library's functions: it answers every request at once, in
// the mood it is told, and sends a little media behind a SETUP or PLAY. It lives as long as the process.
#pragma once

#include "tests/support/packet_builder.h"

#include <atomic>
#include <cstdint>
#include <string_view>
#include <vector>

namespace rtsptap::fuzz {

class LoopbackServer {
public:
    LoopbackServer();

    uint16_t Port() const { return port_; }

    // Status code by the low three bits, then flags.
    enum Mood : uint8_t {
        kStatusBits = 7,
        kNoReply = 8,
        kClose = 16,
        kWithMedia = 32,
        kStrangeSession = 64,
        kCut = 128
    };
    const test::UdpPeer udp;
    std::atomic<uint8_t> mood{0};
    std::atomic<uint16_t> clientPort{0}; // of the last SETUP

private:
    void Serve();
    bool Answer(int connection, std::string_view request); // false: it is to be closed
    void SendMedia(int connection) const;

    int listener_ = -1;
    uint16_t port_ = 0;
};

} // namespace rtsptap::fuzz
