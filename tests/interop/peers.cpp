#include "tests/interop/peers.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <netinet/in.h>
#include <sstream>
#include <sys/socket.h>
#include <unistd.h>

namespace rtsptap::test {

using namespace std::chrono_literals;

namespace {

std::vector<std::string> ServerCommand(const std::vector<std::string> &options) {
    const std::string credentials = std::string(DemoServer::kUser) + ":" + DemoServer::kPassword;
    std::vector<std::string> command = {DEMO_SERVER, "--auth", credentials, "--seconds", "100"};
    command.insert(command.end(), options.begin(), options.end());
    return command;
}

} // namespace

DemoServer::DemoServer(const std::vector<std::string> &options) : process_(ServerCommand(options)) {
    const std::string url = process_.ReadLine(30s);
    const std::size_t colon = url.rfind(':');
    if (colon != std::string::npos) port_ = static_cast<uint16_t>(std::atoi(url.c_str() + colon + 1));
}

std::string DemoServer::Stop() {
    process_.Signal(SIGTERM);
    process_.Wait(10s);
    return process_.Errors();
}

StreamReader::StreamReader(intptr_t client, int32_t codecType)
    : thread_([this, client, codecType] { Read(client, codecType); }) {}

void StreamReader::Stop() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
}

bool StreamReader::WaitForPackets(int count, std::chrono::seconds limit) const {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (packets_ < count && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(10ms);
    return packets_ >= count;
}

void StreamReader::Read(intptr_t client, int32_t codecType) {
    while (!stop_) {
        RTPStreamData *packet = nullptr;
        RTPClientGetRTPStreamData(client, &packet, codecType);
        if (packet == nullptr) {
            std::this_thread::sleep_for(1ms);
            continue;
        }
        const uint16_t number = packet->rtpHeader->sequenceNumber;
        if (packets_ == 0)
            firstSequence_ = number;
        else if (number != static_cast<uint16_t>(lastSequence_ + 1))
            ++outOfOrder_;
        lastSequence_ = number;
        const std::span<const uint8_t> payload(packet->payload, packet->payloadLength);
        if (codecType == RTP_CODEC_H264)
            video_.Take(payload, packet->rtpHeader->marker != 0);
        else
            payloads_.insert(payloads_.end(), payload.begin(), payload.end());
        RTPClientFreeRTPStreamData(client, packet, codecType);
        ++packets_;
    }
}

Decoded DecodeH264(const std::vector<uint8_t> &stream) {
    char name[] = "/tmp/rtsptap-pictures-XXXXXX";
    const int file = mkstemp(name);
    const bool written = write(file, stream.data(), stream.size()) == static_cast<ssize_t>(stream.size());
    close(file);
    ChildProcess decoder({"ffmpeg", "-nostdin", "-v", "warning", "-f", "h264", "-i", name, "-f", "framecrc", "-"});
    Decoded decoded;
    const int status = decoder.Wait(60s);
    unlink(name);
    if (status != 0 || !written) decoded.errors = "ffmpeg ended with " + std::to_string(status) + "\n";
    decoded.errors += decoder.Errors();
    std::istringstream lines(decoder.Output());
    for (std::string line; std::getline(lines, line);) decoded.pictures += line[0] != '#';
    return decoded;
}

uint16_t FreeUdpPort() {
    for (;;) {
        const int first = socket(AF_INET, SOCK_DGRAM, 0);
        const int second = socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in address = {};
        socklen_t length = sizeof address;
        address.sin_family = AF_INET;
        bind(first, reinterpret_cast<sockaddr *>(&address), sizeof address);
        getsockname(first, reinterpret_cast<sockaddr *>(&address), &length);
        const uint16_t port = ntohs(address.sin_port);
        address.sin_port = htons(static_cast<uint16_t>(port + 1));
        const bool pair =
            port % 2 == 0 && bind(second, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
        close(first);
        close(second);
        if (pair) return port;
    }
}

} // namespace rtsptap::test
