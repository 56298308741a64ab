#include "tests/support/packet_builder.h"

#include <arpa/inet.h>
#include <cstring>
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

struct Address {
    sockaddr_storage storage = {};
    socklen_t length = 0;

    Address(const char *ip, uint16_t port) {
        sockaddr_in6 ipv6 = {AF_INET6, htons(port), 0, {}, 0};
        const sockaddr_in ipv4 = {AF_INET, htons(port), {inet_addr(ip)}, {}};
        const bool isIpv6 = inet_pton(AF_INET6, ip, &ipv6.sin6_addr) == 1;
        length = isIpv6 ? sizeof ipv6 : sizeof ipv4;
        std::memcpy(&storage, isIpv6 ? static_cast<const void *>(&ipv6) : &ipv4, length);
    }
    sockaddr *Raw() { return reinterpret_cast<sockaddr *>(&storage); }
    uint16_t Port() const { return ntohs(reinterpret_cast<const sockaddr_in &>(storage).sin_port); }
};

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

UdpPeer::UdpPeer(uint16_t wantedPort, const char *host) {
    Address address(host, wantedPort);
    fd = socket(address.storage.ss_family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (bind(fd, address.Raw(), address.length) == 0 && getsockname(fd, address.Raw(), &address.length) == 0)
        port = address.Port();
}

UdpPeer::~UdpPeer() { close(fd); }

void UdpPeer::SendTo(uint16_t toPort, const std::string &bytes, const char *address) const {
    Address to(address, toPort);
    sendto(fd, bytes.data(), bytes.size(), 0, to.Raw(), to.length);
}

std::string UdpPeer::Receive(int patienceMs) const {
    char bytes[65536];
    pollfd wait = {fd, POLLIN, 0};
    if (poll(&wait, 1, patienceMs) <= 0) return "";
    const ssize_t count = recv(fd, bytes, sizeof bytes, 0);
    return count > 0 ? std::string(bytes, static_cast<std::size_t>(count)) : "";
}

} // namespace rtsptap::test
