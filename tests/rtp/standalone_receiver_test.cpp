#include "tests/support/session.h"

#include <gtest/gtest.h>

using namespace rtsptap::test;

TEST(StandaloneReceiver, StreamsOfASessionTornDownDoNotHideItsOwn) {
    Session session(kUdp, CLIENT_PLAYING_STATE, {{"TEARDOWN ", Ok()}});
    session.SendNumbers(1, Numbers(1, 1));
    RTPStreamData *const held = TakePacket(session.client, kVideo);
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(session.Teardown(), 0);
    const uint16_t port = UdpPeer().Port(); // was free a moment ago
    EXPECT_EQ(StartThirdPartyClient(session.client, 1, kVideo, port, 100000, 0, 0, 0, 0, 0, 0), 0);
    UdpPeer().SendTo(port, Rtp(10));
    EXPECT_EQ(session.Video(1), Numbers(10, 10));
    EXPECT_EQ(RTPClientFreeRTPStreamData(session.client, held, kVideo), 0);
}
