#include "rtp/packet_memory.h"

#include <gtest/gtest.h>

namespace rtsptap {
namespace {

TEST(ReceiveRing, PlacesThePacketWhereAWholeMtuFits) {
    const struct {
        int64_t read, write, mtu;
        RingRoom verdict;
        int64_t room, writeAfter;
    } cases[] = {{0, 0, 100, RingRoom::kReady, 100, 0},
                 {700, 700, 100, RingRoom::kReady, 100, 0},   // empty: back to the start
                 {700, 700, 5000, RingRoom::kReady, 1000, 0}, // an MTU above the ring gets the whole ring
                 {0, 899, 100, RingRoom::kReady, 100, 899},
                 {100, 900, 100, RingRoom::kFullAtEnd, 0, 900}, // full when the space equals the MTU
                 {101, 900, 100, RingRoom::kWrapped, 100, 0},
                 {300, 200, 100, RingRoom::kFullBehind, 0, 200},
                 {301, 200, 100, RingRoom::kReady, 100, 200},
                 {0, 10, UINT32_MAX, RingRoom::kFullAtEnd, 0, 10}}; // MTU above the ring: one packet at a time
    for (const auto &expected : cases) {
        ReceiveRing ring;
        ASSERT_TRUE(AllocateRing(ring, 1000));
        ring.readIndex = expected.read;
        ring.writeIndex = expected.write;
        const RingPlace place = PlaceNextPacket(ring, static_cast<uint32_t>(expected.mtu));
        SCOPED_TRACE(testing::Message() << expected.read << " " << expected.write << " " << expected.mtu);
        EXPECT_EQ(place.verdict, expected.verdict);
        EXPECT_EQ(place.room, expected.room);
        EXPECT_EQ(ring.writeIndex, expected.writeAfter);
        ReleaseRing(ring);
    }
}

} // namespace
} // namespace rtsptap
