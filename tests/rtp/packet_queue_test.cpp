#include "tests/rtp/stream_fixture.h"
#include "tests/support/captured_stdout.h"

#include <random>
#include <thread>

namespace rtsptap {
namespace {

using Numbers = std::vector<int>;

class PacketQueue : public StreamFixture {
protected:
    PacketQueue() { client.dataProto = DATA_PROTO_TCP; } // no lines of the loss accounting between ours

    void ArriveInOrder(int first, int last) {
        for (int number = first; number <= last; ++number) Arrive(Packet(number));
    }

    CapturedStdout out;
};

TEST_F(PacketQueue, OrdersLatePacketsByNumber) {
    const struct {
        Numbers arriving, queued;
    } cases[] = {{{10, 12, 11}, {10, 11, 12}},
                 {{10, 13, 12, 11}, {10, 11, 12, 13}},
                 {{12, 11}, {11, 12}},
                 {{10, 10}, {10, 10}},
                 {{10, 12, 10}, {10, 10, 12}},
                 {{65534, 2}, {65534, 2}},
                 {{65535, 0, 65534}, {65535, 0, 65534}}, // late across the wrap: taken for a newer one
                 {{1000, 501}, {501, 1000}},
                 {{1000, 500}, {1000, 500}}};
    for (const auto &expected : cases) {
        for (const int number : expected.arriving) Arrive(Packet(number));
        EXPECT_EQ(Queued(), expected.queued);
        Drain();
        EXPECT_EQ(stream->ring.readIndex, stream->ring.writeIndex) << "everything has been given back";
    }
    rules.reorder = false;
    for (const int number : {10, 12, 11}) Arrive(Packet(number));
    EXPECT_EQ(Queued(), Numbers({10, 12, 11}));
}

// Kept: a taken packet keeps its links, and the new head its prev, which points to a packet that is gone.
TEST_F(PacketQueue, LooksNoFurtherThanTheHeadForALatePacket) {
    ArriveInOrder(10, 12);
    RTPStreamData *const taken = Get();
    EXPECT_EQ(taken->next, stream->packetListHead);
    EXPECT_EQ(taken->next->prev, taken);
    Free(taken);
    Arrive(Packet(9));
    EXPECT_EQ(Queued(), Numbers({9, 11, 12}));
}

// Kept: from the limit on the count is 1023 or 1024 while the queue grows; drained, it ends below zero.
TEST_F(PacketQueue, UndercountsOnceItHasReachedTheLimit) {
    rules = {.reorder = true, .announceDrops = true, .channel = 6};
    ArriveInOrder(1, 1025);
    EXPECT_EQ(out.Text(), "Discarding packet :1025 : 1025 stream:6 (too many packets)\n");
    EXPECT_EQ(stream->packetCount, 1023);
    ArriveInOrder(1026, 1026);
    EXPECT_EQ(stream->packetCount, 1024);
    EXPECT_EQ(Queued().size(), 1025u);
    Arrive(Packet(1024)); // at the limit a late packet is appended too
    EXPECT_EQ(Queued().front(), 3);
    EXPECT_EQ(Queued().back(), 1024);
    Drain();
    EXPECT_EQ(stream->packetCount, -2);
}

TEST_F(PacketQueue, TrimsDownToTheTargetWhenItSpansMoreThanTheOverflow) {
    rules = {.announceDrops = true, .channel = 4};
    client.targetLatency = 100;
    client.overflowLimit = 200;
    for (const int ms : {0, 50, 100, 150, 200}) Arrive(Packet(ms, static_cast<uint32_t>(ms - 50) * 90));
    EXPECT_EQ(Queued().size(), 5u);
    Arrive(Packet(201, 151 * 90));
    EXPECT_EQ(Queued(), Numbers({150, 200, 201}));
    EXPECT_EQ(out.Text(), "Removed old packet from queue (stream 4)\n");
    Arrive(Packet(900, 5000 * 90));
    EXPECT_EQ(Queued(), Numbers({900}));
}

TEST_F(PacketQueue, KeepsAShownPacketUntilTheNextLook) {
    client.targetLatency = client.overflowLimit = 100;
    Arrive(Packet(1, 0));
    Arrive(Packet(2, 90));
    RTPStreamData *shown = nullptr;
    EXPECT_EQ(RTPClientPeekRTPStreamData(Handle(), &shown, RTP_CODEC_H264), 0);
    Arrive(Packet(3, 90000)); // 1 and 2 leave the queue
    EXPECT_EQ(shown->rtpHeader->sequenceNumber, 1);
    EXPECT_EQ(stream->outstanding, 1);
    client.targetLatency = 0;
    RTPStreamData *const next = Get();
    EXPECT_EQ(next->rtpHeader->sequenceNumber, 3);
    EXPECT_EQ(stream->deferredPacket, nullptr);
    EXPECT_EQ(stream->outstanding, 1);
    Free(next);
}

TEST_F(PacketQueue, DeliversIntactPacketsWhileTheyOvertakeEachOther) {
    constexpr int kPackets = 20000;
    ASSERT_TRUE(AllocateRing(stream->ring, 8000));
    std::thread receiver([this] {
        std::mt19937 random(3);
        for (int sent = 0; sent < kPackets; sent += 2) {
            const int first = random() % 4 == 0 ? 1 : 0; // now and then two neighbours change places
            for (const int number : {sent + first, sent + 1 - first}) {
                while (PlaceNextPacket(stream->ring, client.mtuSize).room == 0) std::this_thread::yield();
                Bytes bytes = Packet(number);
                bytes.resize(12);
                bytes.resize(22 + random() % 1000, static_cast<uint8_t>(number));
                Arrive(bytes);
            }
        }
    });
    for (int taken = 0; taken < kPackets;) {
        RTPStreamData *const packet = Get();
        if (packet == nullptr) continue;
        const auto fill = static_cast<uint8_t>(packet->rtpHeader->sequenceNumber);
        for (uint32_t i = 0; i < packet->payloadLength; ++i) ASSERT_EQ(packet->payload[i], fill);
        Free(packet);
        ++taken;
    }
    receiver.join();
    EXPECT_EQ(stream->outstanding + stream->packetCount, 0);
}

} // namespace
} // namespace rtsptap
