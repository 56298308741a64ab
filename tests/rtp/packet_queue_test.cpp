#include "tests/rtp/stream_fixture.h"
#include "tests/support/captured_stdout.h"

namespace rtsptap {
namespace {

// Order, limits and latency: tests/impair.
class PacketQueue : public StreamFixture {
protected:
    PacketQueue() { client.dataProto = DATA_PROTO_TCP; } // no lines of the loss accounting between ours

    CapturedStdout out;
};

TEST_F(PacketQueue, TellsWhatItDropsFromAnInterleavedStream) {
    rules = {.announceDrops = true, .channel = 6};
    for (int number = 1; number <= 1025; ++number) Arrive(Packet(number));
    Drain();
    client.targetLatency = client.overflowLimit = 100;
    Arrive(Packet(1, 0));
    Arrive(Packet(2, 101 * 90));
    EXPECT_EQ(out.Text(), "Discarding packet :1025 : 1025 stream:6 (too many packets)\n"
                          "Removed old packet from queue (stream 6)\n");
}

// Kept: a taken packet keeps its links, and the new head its prev, which points to a packet that is gone.
TEST_F(PacketQueue, LooksNoFurtherThanTheHeadForALatePacket) {
    for (const int number : {10, 11, 12}) Arrive(Packet(number));
    RTPStreamData *const taken = Get();
    EXPECT_EQ(taken->next, stream->packetListHead);
    EXPECT_EQ(taken->next->prev, taken);
    Free(taken);
    Arrive(Packet(9));
    EXPECT_EQ(Queued(), std::vector<int>({9, 11, 12}));
}

TEST_F(PacketQueue, KeepsAShownPacketUntilTheNextLook) {
    client.targetLatency = client.overflowLimit = 100;
    Arrive(Packet(1, 0));
    Arrive(Packet(2, 90));
    RTPStreamData *shown = nullptr;
    EXPECT_EQ(RTPClientPeekRTPStreamData(Handle(), &shown, RTP_CODEC_H264), 0);
    Arrive(Packet(3, 90000)); // 1 and 2 leave the queue
    EXPECT_EQ(shown->rtpHeader->sequenceNumber, 1);
    EXPECT_EQ(stream->ringHolders, 2);
    client.targetLatency = 0;
    RTPStreamData *const next = Get();
    EXPECT_EQ(next->rtpHeader->sequenceNumber, 3);
    EXPECT_EQ(stream->deferredPacket, nullptr);
    EXPECT_EQ(stream->ringHolders, 2);
    Free(next);
}

} // namespace
} // namespace rtsptap
