// What a packet costs the library between the socket and the application and back, for counting instructions:
// receive, parse, insert, RTPClientGetRTPStreamData, RTPClientFreeRTPStreamData, by one reader that finds bursts
// waiting. One thread does everything and nothing depends on the clock, so a run executes the same instructions as
// the one before. Counted is TakeBurst alone, after rounds that are not counted: packet_price.sh.
//
//     packet_price udp|tcp|udp-numbered|tcp-numbered BURST ROUNDS
//
// Numbered: a burst is taken and given back at once by the number of its stream, RTSPTapTakePackets and
// RTSPTapFreePackets.
#include "platform/handle_table.h"
#include "rtp/media_session.h"
#include "rtp/reader_watch.h"
#include "rtp/receive_turn.h"
#include "rtp/service_thread.h"
#include "rtp/serving.h"
#include "rtp/stream.h"
#include "rtsptap_extended.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

using namespace rtsptap;

namespace {

constexpr int kPacketBytes = 12 + 1200;
constexpr int kWarmUpRounds = 100; // until no step is taken for the first time any more

void Must(bool holds, const char *what) {
    if (holds) return;
    std::perror(what);
    std::exit(1);
}

// Two ends on the loopback interface: what is written to `sender` is received from `receiver`.
struct SocketPair {
    int receiver = -1;
    int sender = -1;
};

SocketPair Connect(int type) {
    SocketPair ends{socket(AF_INET, type, 0), socket(AF_INET, type, 0)};
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    auto *const any = reinterpret_cast<sockaddr *>(&address);
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    Must(bind(ends.receiver, any, length) == 0 && getsockname(ends.receiver, any, &length) == 0, "bind");
    if (type == SOCK_STREAM) Must(listen(ends.receiver, 1) == 0, "listen");
    Must(connect(ends.sender, any, length) == 0, "connect");
    if (type == SOCK_STREAM) ends.receiver = accept(ends.receiver, nullptr, nullptr);
    return ends;
}

// A live session with one stream that is being played. Its thread is in charge of the socket but never runs: the
// reader has every turn.
struct Playing {
    Playing(const Service &service, int socket)
        : stream(AppendStream(session)), thread{.stream = stream, .services = {&service}} {
        const bool overTcp = &service == &kInterleavedService;
        session.dataProto = overTcp ? DATA_PROTO_TCP : DATA_PROTO_UDP;
        session.mtuSize = kDefaultMtuSize;
        session.videoBufferSize = 1 << 20;
        session.state = CLIENT_PLAYING_STATE;
        if (overTcp)
            session.connection.socket = socket;
        else
            stream->rtpSocket = socket;
        stream->isVideo = 1;
        stream->takesFrames = overTcp;
        stream->streamState = kStreamPlaying;
        stream->codecType = RTP_CODEC_H264;
        Must(CreateStreamLocks(*stream) == StreamLock::kNone && AddHandle(Handle()) && NeedReaderWatch() &&
                 service.open(thread),
             "open");
    }
    intptr_t Handle() { return reinterpret_cast<intptr_t>(&session); }

    MediaSession session;
    RTSPStreamInfo *stream;
    StreamThread thread;
};

struct Sender {
    // All of it has arrived when the call returns, so that a burst is always read as one.
    void Send(int burst) {
        std::string bytes;
        for (int i = 0; i < burst; ++i) {
            bytes += Packet();
            if (!overTcp) Write(std::exchange(bytes, {}));
        }
        if (!overTcp) return;
        Write(bytes);
        for (int arrived = 0; arrived < static_cast<int>(bytes.size());)
            Must(ioctl(ends.receiver, FIONREAD, &arrived) == 0, "ioctl");
    }
    void Write(const std::string &bytes) const {
        Must(write(ends.sender, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "write");
    }
    std::string Packet() {
        ++number;
        std::string packet = {'\x80', 96, static_cast<char>(number >> 8), static_cast<char>(number)};
        packet.resize(kPacketBytes, '\x11');
        const char frame[] = {'$', 0, kPacketBytes >> 8, static_cast<char>(kPacketBytes & 0xFF)};
        return overTcp ? std::string(frame, sizeof frame) + packet : packet;
    }

    const bool overTcp;
    const SocketPair ends;
    uint16_t number = 0;
};

bool TakeOne(intptr_t client) {
    RTPStreamData *packet = nullptr;
    return RTPClientGetRTPStreamData(client, &packet, RTP_CODEC_H264) == 0 &&
           RTPClientFreeRTPStreamData(client, packet, RTP_CODEC_H264) == 0;
}

constexpr int kMostAtOnce = 64;

// By number: what comes as one is taken as one, which over TCP may be less than all.
void TakeAtOnce(intptr_t client, int burst) {
    RTPStreamData *packets[kMostAtOnce];
    while (burst > 0) {
        const int32_t count = RTSPTapTakePackets(client, 1, packets, kMostAtOnce, 5000);
        Must(count > 0 && RTSPTapFreePackets(client, 1, packets, count) == 0, "take");
        burst -= count;
    }
}

void Take(intptr_t client, int burst, bool byNumber) {
    if (byNumber) return TakeAtOnce(client, burst);
    for (int i = 0; i < burst; ++i) Must(TakeOne(client), "take");
}

} // namespace

// What is counted; found by its name.
extern "C" [[gnu::noinline]] void TakeBurst(intptr_t client, int burst) {
    for (int i = 0; i < burst; ++i) Must(TakeOne(client), "take");
}
extern "C" [[gnu::noinline]] void TakeBurstByNumber(intptr_t client, int burst) { TakeAtOnce(client, burst); }

int main(int argc, char **argv) {
    Must(argc == 4, "packet_price udp|tcp|udp-numbered|tcp-numbered BURST ROUNDS");
    const bool overTcp = std::strncmp(argv[1], "tcp", 3) == 0;
    const bool byNumber = std::strstr(argv[1], "numbered") != nullptr;
    const int burst = std::atoi(argv[2]);
    const int rounds = std::atoi(argv[3]);
    Sender sender{overTcp, Connect(overTcp ? SOCK_STREAM : SOCK_DGRAM)};
    Playing playing(overTcp ? kInterleavedService : kRtpService, sender.ends.receiver);
    for (int round = 0; round < kWarmUpRounds + rounds; ++round) {
        sender.Send(burst);
        if (round < kWarmUpRounds)
            Take(playing.Handle(), burst, byNumber);
        else if (byNumber)
            TakeBurstByNumber(playing.Handle(), burst);
        else
            TakeBurst(playing.Handle(), burst);
    }
}
