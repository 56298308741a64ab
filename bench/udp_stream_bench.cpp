// Processor time per packet of a UDP stream, end to end: kernel to application, taken and freed. Measured as a
// ratio to a bare loop of recvfrom that discards, both in one run, round after round:
//   udp_stream_bench [ROUNDS [SECONDS]]
#include "bench/measure.h"
#include "rtsptap.h"

namespace {

using bench::Measurement;

constexpr int kPacketsPerSecond = 20000;
constexpr int kBurst = 10;
constexpr std::size_t kPacketBytes = 12 + 1200;
constexpr int kGoodbyes = 20; // the last packet, repeated: it tells the receiver to stop
constexpr int kBufferBytes = 4 << 20;
constexpr uint8_t kMarker = 0x80;

void Send(uint16_t port, double seconds) {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    to.sin_port = htons(port);
    uint8_t packet[kPacketBytes] = {0x80, 96};
    uint16_t sequence = 0;
    timespec next = {};
    clock_gettime(CLOCK_MONOTONIC, &next);
    const auto bursts = static_cast<long>(seconds * kPacketsPerSecond / kBurst);
    for (long burst = 0; burst < bursts + kGoodbyes; ++burst) {
        if (burst >= bursts) packet[1] = kMarker | 96;
        for (int i = burst < bursts ? 0 : kBurst - 1; i < kBurst; ++i) {
            ++sequence;
            packet[2] = static_cast<uint8_t>(sequence >> 8);
            packet[3] = static_cast<uint8_t>(sequence);
            sendto(fd, packet, sizeof packet, 0, reinterpret_cast<const sockaddr *>(&to), sizeof to);
        }
        bench::SleepUntilNext(next, 1000000000L / kPacketsPerSecond * kBurst);
    }
    close(fd);
}

Measurement ReceiveBare(uint16_t port, int ready) {
    const int fd = bench::BoundSocket(SOCK_DGRAM, port);
    Measurement result;
    uint8_t packet[2048] = {};
    sockaddr_in from = {};
    socklen_t length = sizeof from;
    bench::WriteOrExit(ready, "r", 1);
    const double begin = bench::ProcessorMicroseconds();
    const timeval silence{2, 0}; // on a busy machine the goodbyes may be lost, too
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &silence, sizeof silence);
    while ((packet[1] & kMarker) == 0 &&
           recvfrom(fd, packet, sizeof packet, 0, reinterpret_cast<sockaddr *>(&from), &length) > 0)
        ++result.packets;
    result.microseconds = bench::ProcessorMicroseconds() - begin;
    return result;
}

Measurement ReceiveWithLibrary(uint16_t port, int ready) {
    const intptr_t client = RTSPClientCreate();
    if (StartThirdPartyClient(client, 1, RTP_CODEC_H264, port, kBufferBytes, 0, 0, 0, 0, 0, 0) != RTSP_SUCCESS)
        _exit(1);
    Measurement result;
    bench::WriteOrExit(ready, "r", 1);
    const double begin = bench::ProcessorMicroseconds();
    for (bool over = false; !over;) {
        RTPStreamData *packet = nullptr;
        if (RTPClientGetRTPStreamData(client, &packet, RTP_CODEC_H264) != RTSP_SUCCESS || packet == nullptr) break;
        over = packet->rtpHeader->marker != 0;
        RTPClientFreeRTPStreamData(client, packet, RTP_CODEC_H264);
        ++result.packets;
    }
    result.microseconds = bench::ProcessorMicroseconds() - begin;
    RTSPClientDestroy(client);
    return result;
}

Measurement Measure(Measurement (*receive)(uint16_t, int), double seconds) {
    uint16_t port = 0;
    close(bench::BoundSocket(SOCK_DGRAM, port));
    return bench::MeasureApart([&](int ready) { return receive(port, ready); }, [&] { Send(port, seconds); });
}

} // namespace

int main(int argc, char **argv) {
    const int rounds = std::max(argc > 1 ? std::atoi(argv[1]) : 5, 1);
    const double seconds = argc > 2 ? std::atof(argv[2]) : 2;
    std::printf("UDP stream: %d packets/s in bursts of %d, %zu bytes each, %d rounds of %g s\n", kPacketsPerSecond,
                kBurst, kPacketBytes, rounds, seconds);
    bench::CompareInRounds(
        rounds, [&] { return Measure(ReceiveBare, seconds); },
        [&] { return Measure(ReceiveWithLibrary, seconds); });
    return 0;
}
