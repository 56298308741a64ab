// Hostile bytes on an interleaved connection, through the thread that serves it. Input: a byte of settings, one of
// sizes, one that cuts what follows into pieces, then the bytes, sent once or over and over until the thread has to
// move what it read ahead. Two streams, channels 0 and 2. Or through a connection that no frames are expected on.
// The server reads nothing of what it is answered.
#include "fuzz/fuzz_target.h"
#include "rtp/interleaved/interleaved_service.h"
#include "rtp/service_thread.h"
#include "rtsp/client/exchange.h"
#include "rtsp/message/response.h"
#include "tests/support/described_client.h"
#include "tests/support/packet_builder.h"
#include "tests/torture/system_calls.h"

#include <unistd.h>

using namespace rtsptap;
using fuzz::Require;

namespace {

constexpr uint8_t kReplyFirst = 1, kHandOver = 2, kTakePackets = 4, kAwaitReply = 8, kRepeated = 112;
constexpr uint8_t kWaitForPackets = 128;       // then this thread serves the connection in its turn
constexpr std::size_t kRepeatedBytes = 140000; // twice what is read ahead at most, and some
constexpr std::size_t kSocketBytes = 50000;    // what a socket takes that nobody reads
constexpr int kWaits = 3;                      // of an input, each for 5 ms at most

struct Server {
    explicit Server(std::string_view sent, int32_t ringBytes, uint32_t mtu) : bytes(sent) {
        int ends[2];
        Require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
        client.media.connection.socket = ends[0];
        peer = ends[1];
        client.media.dataProto = DATA_PROTO_TCP;
        client.media.state = CLIENT_PLAYING_STATE;
        client.media.videoBufferSize = client.media.audioBufferSize = ringBytes;
        client.media.mtuSize = mtu;
        for (RTSPStreamInfo *stream : streams) stream->streamState = kStreamPlaying;
        streams[1]->interleavedChannel = 2;
    }
    ~Server() { close(peer); }

    void Send(std::string_view piece) const {
        while (!piece.empty()) {
            const ssize_t sent = send(peer, piece.data(), piece.size(), MSG_NOSIGNAL);
            if (sent <= 0) return; // the thread may end for want of memory
            piece.remove_prefix(static_cast<std::size_t>(sent));
        }
    }

    // What is handed out is the body of a frame that was sent, each behind the last one of its stream.
    void TakePackets(bool wait = false) {
        for (unsigned i = 0; i < 2; ++i) {
            for (bool once = wait; once || streams[i]->packetListHead != nullptr; once = false) {
                const int32_t codec = streams[i]->codecType;
                RTPStreamData *packet = nullptr;
                const int32_t result = RTPClientGetRTPStreamData(described.handle, &packet, codec);
                if (once && packet == nullptr) continue; // none came in time
                Require(result == 0);
                const std::string frame =
                    test::Frame(2U * i, std::string(fuzz::TextOf(packet->packetData, packet->packetLength)));
                const std::size_t at = bytes.find(frame, behind[i]);
                Require(at != bytes.npos && packet->packetLength <= client.media.mtuSize);
                behind[i] = at + frame.size();
                RTPClientFreeRTPStreamData(described.handle, packet, codec);
            }
        }
    }

    void CheckReply(RecvBufferPtr reply) const {
        if (reply == nullptr) return;
        Require(bytes.find({reply->data, static_cast<std::size_t>(reply->length)}) != bytes.npos);
        const ResponseMsgPtr parsed(ClientParseMessage(reply.get(), Dialect{}));
    }

    const std::string_view bytes;
    test::DescribedClient described{"v=0\r\nm=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\n"
                                    "m=audio 0 RTP/AVP 0\r\na=rtpmap:0 PCMU/8000\r\n"};
    RTSPClient &client = described.client;
    RTSPStreamInfo *const streams[2] = {&described.Stream(1), &described.Stream(2)};
    std::size_t behind[2] = {};
    int peer = -1;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    torture::Hurry();
    fuzz::Input input(data, size);
    const uint8_t settings = input.U8();
    const uint8_t sizes = input.U8();
    std::size_t pieceBytes = std::size_t{input.U8()} + 1;
    std::string bytes(input.Rest());
    if ((settings & kRepeated) == kRepeated) { // not every other time: it takes long
        const std::string once = bytes;
        while (!once.empty() && bytes.size() < kRepeatedBytes) bytes += once;
        pieceBytes *= 256;
    }
    std::string_view left = bytes;
    Server server(left, sizes & 1 ? 300 : 20000, sizes & 2 ? 101 : 33000);
    MediaSession &session = server.client.media;
    if (sizes & 16) session.dialect.Choose(RTSPTAP_DIALECT_TOLERANT);
    if (sizes & 32) session.connection.tending.keepAlive = 100;
    const auto sendUpTo = [&](std::size_t count) {
        server.Send(left.substr(0, count));
        left.remove_prefix(std::min(count, left.size()));
        if (left.empty()) shutdown(server.peer, SHUT_WR);
    };

    if (settings & kReplyFirst) { // as the first PLAY takes its reply, before there is a thread
        int32_t failure = 0;
        sendUpTo((sizes & 12) == 12 ? std::min(pieceBytes, kSocketBytes)
                                    : kSocketBytes); // the rest may be waited for
        ChooseStreamsForFrames(session);
        BeginAwaiting(session.connection);
        server.CheckReply(ReceiveReplyAmongFrames(session, failure));
        EndAwaiting(session.connection);
    }
    if (settings & kAwaitReply) BeginAwaiting(session.connection);
    while (sizes & 64) { // as over UDP
        sendUpTo(pieceBytes);
        if (!ReadConnection(session)) return 0;
        server.CheckReply(TakePostedReply(session.connection));
    }
    StartInterleavedThread(session);
    sendUpTo(0);
    for (int pieces = 0; !left.empty(); ++pieces) {
        sendUpTo(pieceBytes);
        if ((settings & kHandOver) && pieces % 8 == 7) StartInterleavedThread(session);
        if (settings & kTakePackets) server.TakePackets((settings & kWaitForPackets) && pieces < kWaits);
    }
    while (IsServing(server.streams[0]->thread)) usleep(100);
    server.TakePackets();
    server.CheckReply(TakePostedReply(session.connection));
    return 0;
}
