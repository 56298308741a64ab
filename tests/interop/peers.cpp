#include "tests/interop/peers.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <unistd.h>

namespace rtsptap::test {

using namespace std::chrono_literals;

// Sessions that stay silent end after 4 seconds, and 5 of grace.
DemoServer::DemoServer()
    : process_({DEMO_SERVER, "--auth", std::string(kUser) + ":" + kPassword, "--seconds", "100", "--log-reports",
                "--session-timeout", "4"}) {
    const std::string url = process_.ReadLine(30s);
    const std::size_t colon = url.rfind(':');
    if (colon != std::string::npos) port_ = static_cast<uint16_t>(std::atoi(url.c_str() + colon + 1));
}

std::string DemoServer::UrlWith(const std::string &credentials) const {
    return "rtsp://" + credentials + "@127.0.0.1:" + std::to_string(port_) + "/demo";
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
        outOfOrder_ += packets_ > 0 && number != static_cast<uint16_t>(lastSequence_ + 1);
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

} // namespace rtsptap::test
