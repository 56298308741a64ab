#include "rtp/receive_ring.h"

#include <gtest/gtest.h>

#include <deque>
#include <random>

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

TEST(ReceiveRing, NeverPlacesAPacketOverOneThatIsInUse) {
    std::mt19937 random(7);
    for (const int32_t size : {-1, 0, 1, 100, 1499, 1500, 1501, 3001, 20000}) {
        ReceiveRing ring;
        ASSERT_TRUE(AllocateRing(ring, size));
        std::deque<std::pair<int64_t, int64_t>> inUse; // begin, end
        int received = 0;
        for (int step = 0; step < 20000; ++step) {
            if (random() % 2 == 0 && !inUse.empty()) {
                ring.readIndex = inUse.front().second;
                inUse.pop_front();
            } else if (const RingPlace place = PlaceNextPacket(ring, 1500); place.room > 0) {
                const int64_t end = ring.writeIndex + 1 + static_cast<int64_t>(random()) % place.room;
                ASSERT_LE(end, ring.size);
                for (const auto &other : inUse) ASSERT_TRUE(end <= other.first || ring.writeIndex >= other.second);
                inUse.emplace_back(ring.writeIndex, end);
                ring.writeIndex = end;
                ++received;
            }
        }
        EXPECT_GT(received, 4000) << "ring of " << size;
        ReleaseRing(ring);
    }
}

} // namespace
} // namespace rtsptap
