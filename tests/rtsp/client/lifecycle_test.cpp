#include "tests/support/session.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <thread>

using namespace rtsptap::test;

TEST(Lifecycle, RefusesWhatIsNotALiveClient) {
    const Client client;
    const intptr_t gone = Client();
    ExpectRefusals("RTSPClientDestroy",
                   {{"null", [] { return RTSPClientDestroy(0); }, -99, " :Invalid input argument\n"},
                    {"twice", [&] { return RTSPClientDestroy(gone); }, -72, " :No such client found\n"}});
    EXPECT_EQ(RTSPClientSetMTUSize(client, 100), -99);
    EXPECT_EQ(RTSPClientSetMTUSize(gone, 5000), -99);
    EXPECT_EQ(RTSPClientSetMTUSize(client, 101), 0);
}

TEST(Lifecycle, ThreadsMayCreateAndDestroyAtTheSameTime) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([] {
            for (int round = 0; round < 100; ++round) EXPECT_EQ(ValidateRTSPClientHandle(Client()), 0);
        });
    for (std::thread &thread : threads) thread.join();
}

TEST(Lifecycle, DestroyEndsTheSessionInEveryState) {
    if (fcntl(0, F_GETFD) == -1) open("/dev/null", O_RDONLY);
    const std::size_t threads = CountThreads();
    const std::size_t descriptors = CountDescriptors();
    for (const uint32_t proto : {kUdp, kTcp}) {
        for (int state = CLIENT_INIT_STATE; state <= CLIENT_PAUSE_STATE; ++state) {
            Session session(proto, static_cast<RTSPClientState>(state));
            EXPECT_TRUE(SucceedsSoon([&] { return session.client.Destroy(); })) << proto << " " << state;
            EXPECT_TRUE(session.server.WaitForClose());
            EXPECT_TRUE(Eventually([&] { return CountThreads() == threads + 1; })) << proto << " " << state;
        }
        Session moved(proto, CLIENT_PAUSE_STATE, {{"OPTIONS ", Ok()}}); // which leaves nothing but Destroy
        EXPECT_EQ(moved.Options(), 0);
        EXPECT_EQ(moved.Teardown(), RTSP_INVALID_STATE);
        EXPECT_TRUE(SucceedsSoon([&] { return moved.client.Destroy(); }));
    }
    { const Client neverConnected; }
    EXPECT_NE(fcntl(0, F_GETFD), -1); // standard input is nobody's socket
    EXPECT_EQ(CountDescriptors(), descriptors);
}

TEST(Lifecycle, DestroyIsQuickWhenTheServerHasGone) {
    for (const uint32_t proto : {kUdp, kTcp}) {
        Session session(proto, CLIENT_PAUSE_STATE);
        session.server.Hangup(true);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        // Kept: the refused send shows as a missing reply.
        EXPECT_EQ(proto == kUdp ? session.Teardown() : RTSP_NO_RESPONSE, RTSP_NO_RESPONSE);
        EXPECT_TRUE(SucceedsSoon([&] { return session.client.Destroy(); }));
    }
}
