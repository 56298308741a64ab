#include "tests/support/packet_builder.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace rtsptap::test {

namespace {

std::string Big(uint32_t value, int bytes) {
    std::string text;
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) text += static_cast<char>(value >> shift & 0xFF);
    return text;
}

sockaddr_in Address(uint16_t port, const char *ip = "127.0.0.1") {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = inet_addr(ip);
    address.sin_port = htons(port);
    return address;
}

} // namespace

std::string Bytes(const RtpPacket &packet) {
    const unsigned first = packet.version << 6 | (packet.padding > 0 ? 0x20U : 0U) |
                           (packet.extension ? 0x10U : 0U) | static_cast<unsigned>(packet.csrc.size());
    std::string bytes = Big(first, 1) + Big((packet.marker ? 0x80U : 0U) | packet.payloadType, 1) +
                        Big(packet.sequenceNumber, 2) + Big(packet.timestamp, 4) + Big(packet.ssrc, 4);
    for (const uint32_t source : packet.csrc) bytes += Big(source, 4);
    if (packet.extension)
        bytes += Big(packet.extensionProfile, 2) + Big(static_cast<uint32_t>(packet.extensionData.size() / 4), 2) +
                 packet.extensionData;
    bytes += packet.payload;
    if (packet.padding > 0) bytes += std::string(packet.padding - 1, '\0') + Big(packet.padding, 1);
    return bytes;
}

std::string Rtp(uint16_t sequenceNumber, const std::string &payload) {
    return Bytes(
        RtpPacket{.sequenceNumber = sequenceNumber, .timestamp = sequenceNumber * 3000U, .payload = payload});
}

std::string RtcpPacket(unsigned type, const std::vector<uint32_t> &words) {
    std::string bytes = Big(0x81, 1) + Big(type, 1) + Big(static_cast<uint32_t>(words.size()), 2);
    for (const uint32_t word : words) bytes += Big(word, 4);
    return bytes;
}

std::string SenderReport(uint32_t ntpMsw, uint32_t ntpLsw) {
    return RtcpPacket(200, {0x11223344, ntpMsw, ntpLsw, 0, 0, 0});
}

std::string Frame(unsigned channel, const std::string &body) {
    return "$" + Big(channel, 1) + Big(static_cast<uint32_t>(body.size()), 2) + body;
}

uint16_t Word16(const std::string &bytes, std::size_t offset) {
    return static_cast<uint16_t>(static_cast<uint8_t>(bytes.at(offset)) << 8 |
                                 static_cast<uint8_t>(bytes.at(offset + 1)));
}

uint32_t Word32(const std::string &bytes, std::size_t offset) {
    return static_cast<uint32_t>(Word16(bytes, offset)) << 16 | Word16(bytes, offset + 2);
}

UdpPeer::UdpPeer(uint16_t wantedPort) : fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = Address(wantedPort);
    socklen_t length = sizeof address;
    if (bind(fd, reinterpret_cast<sockaddr *>(&address), length) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) == 0)
        port = ntohs(address.sin_port);
}

UdpPeer::~UdpPeer() { close(fd); }

void UdpPeer::SendTo(uint16_t toPort, const std::string &bytes, const char *address) const {
    const sockaddr_in to = Address(toPort, address);
    sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr *>(&to), sizeof to);
}

std::string UdpPeer::Receive(int patienceMs) const {
    char bytes[65536];
    pollfd wait = {fd, POLLIN, 0};
    if (poll(&wait, 1, patienceMs) <= 0) return "";
    const ssize_t count = recv(fd, bytes, sizeof bytes, 0);
    return count > 0 ? std::string(bytes, static_cast<std::size_t>(count)) : "";
}

} // namespace rtsptap::test
