// Processor time per packet of a UDP stream, end to end: kernel to application, taken and freed. Measured as a
// ratio to a bare loop of recvfrom that discards, both in one run, round after round:
//   udp_stream_bench [ROUNDS [SECONDS]]
// Every receiver and the sender are processes of their own, so that getrusage sees the receiver alone.
#include "rtsptap.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int kPacketsPerSecond = 20000;
constexpr int kBurst = 10;
constexpr std::size_t kHeaderBytes = 12;
constexpr std::size_t kPacketBytes = kHeaderBytes + 1200;
constexpr int kGoodbyes = 20; // the last packet, repeated: it tells the receiver to stop
constexpr int kBufferBytes = 4 << 20;
constexpr uint8_t kMarker = 0x80;

struct Measurement {
    double microseconds = 0; // of processor time
    long packets = 0;
};

double ProcessorMicroseconds() {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    const auto micro = [](const timeval &time) {
        return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
    };
    return micro(usage.ru_utime) + micro(usage.ru_stime);
}

sockaddr_in Loopback(uint16_t port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

// Bound to a free port of the loopback interface when port is 0.
int BoundSocket(uint16_t &port) {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address = Loopback(port);
    socklen_t length = sizeof address;
    if (bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) std::exit(1);
    getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length);
    port = ntohs(address.sin_port);
    return fd;
}

void Send(uint16_t port, double seconds) {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    const sockaddr_in to = Loopback(port);
    uint8_t packet[kPacketBytes] = {0x80, 96};
    uint16_t sequence = 0;
    const auto sendNext = [&] {
        ++sequence;
        packet[2] = static_cast<uint8_t>(sequence >> 8);
        packet[3] = static_cast<uint8_t>(sequence);
        sendto(fd, packet, sizeof packet, 0, reinterpret_cast<const sockaddr *>(&to), sizeof to);
    };
    timespec next = {};
    clock_gettime(CLOCK_MONOTONIC, &next);
    const auto bursts = static_cast<long>(seconds * kPacketsPerSecond / kBurst);
    for (long burst = 0; burst < bursts + kGoodbyes; ++burst) {
        if (burst >= bursts) packet[1] = kMarker | 96;
        for (int i = 0; i < kBurst && burst < bursts; ++i) sendNext();
        if (burst >= bursts) sendNext();
        next.tv_nsec += 1000000000L / kPacketsPerSecond * kBurst;
        next.tv_sec += next.tv_nsec / 1000000000L;
        next.tv_nsec %= 1000000000L;
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
    }
    close(fd);
}

Measurement ReceiveBare(uint16_t port, int ready) {
    const int fd = BoundSocket(port);
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kBufferBytes, sizeof kBufferBytes);
    Measurement result;
    uint8_t packet[2048] = {};
    sockaddr_in from = {};
    socklen_t length = sizeof from;
    if (write(ready, "r", 1) != 1) std::exit(1);
    const double begin = ProcessorMicroseconds();
    while ((packet[1] & kMarker) == 0 &&
           recvfrom(fd, packet, sizeof packet, 0, reinterpret_cast<sockaddr *>(&from), &length) > 0)
        ++result.packets;
    result.microseconds = ProcessorMicroseconds() - begin;
    return result;
}

Measurement ReceiveWithLibrary(uint16_t port, int ready) {
    const intptr_t client = RTSPClientCreate();
    if (StartThirdPartyClient(client, 1, RTP_CODEC_H264, port, kBufferBytes, 0, 0, 0, 0, 0, 0) != RTSP_SUCCESS)
        std::exit(1);
    Measurement result;
    if (write(ready, "r", 1) != 1) std::exit(1);
    const double begin = ProcessorMicroseconds();
    for (bool over = false; !over;) {
        RTPStreamData *packet = nullptr;
        if (RTPClientGetRTPStreamData(client, &packet, RTP_CODEC_H264) != RTSP_SUCCESS || packet == nullptr)
            continue;
        over = packet->rtpHeader->marker != 0;
        RTPClientFreeRTPStreamData(client, packet, RTP_CODEC_H264);
        ++result.packets;
    }
    result.microseconds = ProcessorMicroseconds() - begin;
    RTSPClientDestroy(client);
    return result;
}

// Runs one receiver in a process of its own against a sender in another.
Measurement Measure(Measurement (*receive)(uint16_t, int), double seconds) {
    uint16_t port = 0;
    close(BoundSocket(port));
    int pipeEnds[2] = {};
    std::fflush(stdout); // or the children print it again
    if (pipe(pipeEnds) != 0) std::exit(1);
    if (fork() == 0) {
        if (std::freopen("/dev/null", "w", stdout) == nullptr) _exit(1);
        const Measurement result = receive(port, pipeEnds[1]);
        _exit(write(pipeEnds[1], &result, sizeof result) == sizeof result ? 0 : 1);
    }
    char ready = 0;
    close(pipeEnds[1]);
    if (read(pipeEnds[0], &ready, 1) != 1) std::exit(1);
    if (fork() == 0) {
        Send(port, seconds);
        _exit(0);
    }
    Measurement result;
    if (read(pipeEnds[0], &result, sizeof result) != sizeof result) std::exit(1);
    close(pipeEnds[0]);
    while (wait(nullptr) > 0) {
    }
    return result;
}

double PerPacket(const Measurement &measurement) {
    return measurement.microseconds / static_cast<double>(std::max(measurement.packets, 1L));
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char **argv) {
    const int rounds = std::max(argc > 1 ? std::atoi(argv[1]) : 5, 1);
    const double seconds = argc > 2 ? std::atof(argv[2]) : 2;
    std::printf("UDP stream: %d packets/s in bursts of %d, %zu bytes each, %d rounds of %g s\n", kPacketsPerSecond,
                kBurst, kPacketBytes, rounds, seconds);
    std::printf("%5s  %22s  %22s  %6s\n", "round", "recvfrom, us/packet", "rtsptap, us/packet", "ratio");
    std::vector<double> ratios;
    for (int round = 1; round <= rounds; ++round) {
        const Measurement bare = Measure(ReceiveBare, seconds);
        const Measurement library = Measure(ReceiveWithLibrary, seconds);
        ratios.push_back(PerPacket(library) / PerPacket(bare));
        std::printf("%5d  %7.3f (%ld packets)  %7.3f (%ld packets)  %6.2f\n", round, PerPacket(bare), bare.packets,
                    PerPacket(library), library.packets, ratios.back());
        std::fflush(stdout);
    }
    std::printf("ratio, median: %.2f\n", Median(ratios));
    return 0;
}
