// Processor time per frame of an interleaved stream, end to end: connection to application, taken and freed.
// Measured as a ratio to a bare loop that reads 64 KiB at a time and counts frames, both in one run:
//   interleaved_bench [ROUNDS [SECONDS]]
#include "bench/measure.h"
#include "rtsptap.h"

#include <cstring>
#include <netinet/tcp.h>
#include <string>

namespace {

using bench::Measurement;

constexpr std::size_t kBodyBytes = 12 + 1200;
constexpr std::size_t kFrameBytes = 4 + kBodyBytes;
constexpr int kBurst = 32;
constexpr int kBufferBytes = 4 << 20;
constexpr uint8_t kMarker = 0x80;
constexpr uint64_t kSilenceMs = 4000; // the library waits five seconds for a packet
constexpr const char *kDescription =
    "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=bench\r\nt=0 0\r\nm=video 0 RTP/AVP 96\r\n"
    "a=rtpmap:96 H264/90000\r\na=control:track1\r\n";

struct Load {
    const char *name;
    long framesPerSecond; // 0: as fast as the connection takes them
};

void SendBurst(int connection, uint16_t &sequence, bool last) {
    static uint8_t bytes[kBurst * kFrameBytes];
    for (int i = 0; i < kBurst; ++i) {
        uint8_t *const frame = bytes + static_cast<std::size_t>(i) * kFrameBytes;
        ++sequence;
        const uint8_t header[] = {'$',
                                  0,
                                  kBodyBytes >> 8,
                                  kBodyBytes & 0xFF,
                                  0x80,
                                  static_cast<uint8_t>((last && i == kBurst - 1 ? kMarker : 0) | 96),
                                  static_cast<uint8_t>(sequence >> 8),
                                  static_cast<uint8_t>(sequence)};
        memcpy(frame, header, sizeof header);
    }
    for (std::size_t sent = 0; sent < sizeof bytes;) {
        const ssize_t count = send(connection, bytes + sent, sizeof bytes - sent, MSG_NOSIGNAL);
        if (count <= 0) _exit(1);
        sent += static_cast<std::size_t>(count);
    }
}

void Stream(int connection, const Load &load, double seconds) {
    timespec next = {};
    clock_gettime(CLOCK_MONOTONIC, &next);
    const time_t end = next.tv_sec + static_cast<time_t>(seconds);
    const auto bursts = static_cast<long>(static_cast<double>(load.framesPerSecond) * seconds / kBurst);
    uint16_t sequence = 0;
    for (long burst = 0;; ++burst) {
        timespec now = {};
        if (load.framesPerSecond == 0) clock_gettime(CLOCK_MONOTONIC, &now);
        const bool last = load.framesPerSecond == 0 ? now.tv_sec >= end : burst >= bursts;
        SendBurst(connection, sequence, last);
        if (last) return;
        if (load.framesPerSecond > 0) bench::SleepUntilNext(next, 1000000000L / load.framesPerSecond * kBurst);
    }
}

void Reply(int connection, const std::string &request) {
    const std::string cseq =
        request.substr(request.find("CSeq:"), request.find("\r\n", request.find("CSeq:")) - request.find("CSeq:"));
    std::string reply = "RTSP/1.0 200 OK\r\n" + cseq + "\r\nSession: bench\r\n";
    if (request.starts_with("SETUP")) reply += "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n";
    if (request.starts_with("DESCRIBE"))
        reply += "Content-Length: " + std::to_string(strlen(kDescription)) + "\r\n\r\n" + kDescription;
    else
        reply += "\r\n";
    bench::WriteOrExit(connection, reply.data(), reply.size());
}

// A server for one connection: answers until PLAY, or a bare "GO", then streams.
void Serve(int listener, const Load &load, double seconds) {
    const int connection = accept(listener, nullptr, nullptr);
    const int on = 1;
    setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    std::string request(4096, '\0');
    for (bool streams = false; !streams;) {
        const ssize_t count = recv(connection, request.data(), request.size(), 0);
        if (count <= 0) _exit(1);
        const std::string text = request.substr(0, static_cast<std::size_t>(count));
        if (!text.starts_with("GO")) Reply(connection, text);
        streams = text.starts_with("PLAY") || text.starts_with("GO");
    }
    Stream(connection, load, seconds);
    while (recv(connection, request.data(), request.size(), 0) > 0) {
    }
}

Measurement ReceiveBare(uint16_t port, int ready) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    to.sin_port = htons(port);
    bench::WriteOrExit(ready, "r", 1);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&to), sizeof to) != 0) _exit(1);
    bench::WriteOrExit(fd, "GO", 2);
    Measurement result;
    static uint8_t bytes[65536 + kFrameBytes];
    std::size_t held = 0;
    const double begin = bench::ProcessorMicroseconds();
    for (bool over = false; !over;) {
        const ssize_t count = recv(fd, bytes + held, 65536, 0);
        if (count <= 0) _exit(1);
        held += static_cast<std::size_t>(count);
        std::size_t at = 0;
        for (; held - at >= kFrameBytes; at += kFrameBytes, ++result.packets)
            over = over || (bytes[at + 5] & kMarker) != 0;
        memmove(bytes, bytes + at, held - at);
        held -= at;
    }
    result.microseconds = bench::ProcessorMicroseconds() - begin;
    return result;
}

Measurement ReceiveWithLibrary(uint16_t port, int ready) {
    const intptr_t client = RTSPClientCreate();
    RTPClientSetAudioVideoBufferSize(client, kBufferBytes, kBufferBytes);
    bench::WriteOrExit(ready, "r", 1);
    if (RTSPClientAutoRTSPConnect(client, "127.0.0.1", port, "bench", "", "", DATA_PROTO_TCP, 0, 0, 0, 0, 0,
                                  nullptr, nullptr) != RTSP_SUCCESS)
        _exit(1);
    Measurement result;
    const double begin = bench::ProcessorMicroseconds();
    for (bool over = false; !over;) {
        RTPStreamData *packet = nullptr;
        const uint64_t asked = GetTimeValue();
        if (RTPClientGetRTPStreamData(client, &packet, RTP_CODEC_H264) != RTSP_SUCCESS || packet == nullptr) {
            over = GetTimeValue() - asked > kSilenceMs; // the last frame found no room
            continue;
        }
        over = packet->rtpHeader->marker != 0;
        RTPClientFreeRTPStreamData(client, packet, RTP_CODEC_H264);
        ++result.packets;
    }
    result.microseconds = bench::ProcessorMicroseconds() - begin;
    RTSPClientDestroy(client);
    return result;
}

Measurement Measure(Measurement (*receive)(uint16_t, int), const Load &load, double seconds) {
    uint16_t port = 0;
    const int listener = bench::BoundSocket(SOCK_STREAM, port);
    listen(listener, 1);
    const Measurement result = bench::MeasureApart([&](int ready) { return receive(port, ready); },
                                                   [&] { Serve(listener, load, seconds); });
    close(listener);
    return result;
}

} // namespace

int main(int argc, char **argv) {
    const int rounds = std::max(argc > 1 ? std::atoi(argv[1]) : 5, 1);
    const double seconds = argc > 2 ? std::atof(argv[2]) : 2;
    for (const Load &load : {Load{"100000 frames/s in bursts of 32", 100000}, Load{"flat out", 0}}) {
        std::printf("interleaved stream: %s, %zu bytes each, %d rounds of %g s\n", load.name, kBodyBytes, rounds,
                    seconds);
        bench::CompareInRounds(
            rounds, [&] { return Measure(ReceiveBare, load, seconds); },
            [&] { return Measure(ReceiveWithLibrary, load, seconds); });
    }
    return 0;
}
