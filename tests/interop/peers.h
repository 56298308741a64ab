// The real programs that the library is tested against, and what the tests take from them.
#pragma once

#include "rtsptap.h"
#include "tests/support/child_process.h"
#include "tests/support/h264_depacketizer.h"
#include "tests/support/packet_builder.h"

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace rtsptap::test {

// The bundled server on a free port; it asks for digest authentication.
class DemoServer {
public:
    DemoServer();
    uint16_t Port() const { return port_; }
    std::string UrlWith(const std::string &credentials) const; // user:password, as URLs write them

    std::string Stop(); // what it said on standard error

    static constexpr const char *kUser = "viewer";
    static constexpr const char *kPassword = "a-running-clock";

private:
    ChildProcess process_;
    uint16_t port_ = 0;
};

// Takes and frees one stream's packets on a thread of its own, from the constructor to Stop().
class StreamReader {
public:
    StreamReader(intptr_t client, int32_t codecType);
    ~StreamReader() { Stop(); }
    void Stop();

    int Packets() const { return packets_; }
    bool WaitForPackets(int count, std::chrono::seconds limit) const;
    // After Stop():
    int OutOfOrder() const { return outOfOrder_; } // did not follow their predecessor's sequence number
    const H264Depacketizer &Video() const { return video_; }
    const std::vector<uint8_t> &Payloads() const { return payloads_; } // of streams other than H.264, joined

private:
    void Read(intptr_t client, int32_t codecType);

    std::atomic<bool> stop_{false};
    std::atomic<int> packets_{0};
    int outOfOrder_ = 0;
    uint16_t lastSequence_ = 0;
    H264Depacketizer video_;
    std::vector<uint8_t> payloads_;
    std::thread thread_;
};

// What ffmpeg makes of an Annex B stream.
struct Decoded {
    int pictures = 0;
    std::string errors; // empty when every byte was good
};
Decoded DecodeH264(const std::vector<uint8_t> &stream);

// A command line of a shell; the program itself gets the signals.
inline std::vector<std::string> Shell(const std::string &command) { return {"sh", "-c", "exec " + command}; }

inline uint16_t FreeUdpPort() { return UdpPeer().Port(); } // was free a moment ago

} // namespace rtsptap::test
