// RTP and RTCP packets, interleaved frames and a UDP peer, for tests. Written without the library's own wire
// code, so that a fault there cannot hide.
#pragma once

#include <string>
#include <vector>

#include <cstdint>

namespace rtsptap::test {

// Texts serve as byte strings throughout.
struct RtpPacket {
    unsigned version = 2;
    unsigned payloadType = 96;
    bool marker = false;
    uint16_t sequenceNumber = 0;
    uint32_t timestamp = 0, ssrc = 0x11223344;
    std::vector<uint32_t> csrc = {};
    bool extension = false;
    uint16_t extensionProfile = 0;
    std::string extensionData = {}; // whole 32-bit words
    std::string payload = "payload!";
    unsigned padding = 0; // bytes, the last of which carries the count
};
std::string Bytes(const RtpPacket &packet);
std::string Rtp(uint16_t sequenceNumber, const std::string &payload = "payload!");

std::string RtcpPacket(unsigned type, const std::vector<uint32_t> &words); // one source
std::string SenderReport(uint32_t ntpMsw = 0, uint32_t ntpLsw = 0);

std::string Frame(unsigned channel, const std::string &body); // "$", channel, 16-bit length, body

uint16_t Word16(const std::string &bytes, std::size_t offset);
uint32_t Word32(const std::string &bytes, std::size_t offset);

// A UDP socket on this machine: the far end of a stream.
class UdpPeer {
public:
    explicit UdpPeer(uint16_t wantedPort = 0, const char *host = "127.0.0.1"); // 0: any free port
    ~UdpPeer();
    UdpPeer(UdpPeer &&) = delete; // nor copied

    uint16_t Port() const { return port; } // 0 when the wanted port is taken
    void SendTo(uint16_t toPort, const std::string &bytes, const char *address = "127.0.0.1") const;
    std::string Receive(int patienceMs = 5000) const; // empty when nothing came

private:
    int fd = -1;
    uint16_t port = 0;
};

} // namespace rtsptap::test
