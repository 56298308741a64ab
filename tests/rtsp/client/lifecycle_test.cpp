#include "tests/support/session.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <thread>

using namespace rtsptap::test;

namespace {

bool StandardInputIsOpen() { return fcntl(0, F_GETFD) != -1; }

intptr_t DestroyedClient() { return Client(); }

} // namespace

TEST(Lifecycle, RefusesWhatIsNotALiveClient) {
    const Client client;
    const intptr_t gone = DestroyedClient();
    ExpectRefusals({
        {"destroy null", [] { return RTSPClientDestroy(0); }, -99,
         "EXIT : RTSPClientDestroy :Invalid input argument\n"},
        {"destroy twice", [&] { return RTSPClientDestroy(gone); }, -72,
         "EXIT : RTSPClientDestroy :No such client found\n"},
        {"mtu 100", [&] { return RTSPClientSetMTUSize(client, 100); }, -99,
         "EXIT : RTSPClientSetMTUSize :Invalid input argument : 100\n"},
        {"mtu of null", [] { return RTSPClientSetMTUSize(0, 5000); }, -99,
         "EXIT : RTSPClientSetMTUSize :Invalid input argument : 5000\n"},
        {"mtu of a gone client", [&] { return RTSPClientSetMTUSize(gone, 5000); }, -99,
         "EXIT : RTSPClientSetMTUSize :Invalid client handle\n"},
    });
    EXPECT_EQ(RTSPClientSetMTUSize(client, 101), 0);
    EXPECT_EQ(RTSPClientSetMTUSize(client, 0xFFFFFFFF), 0);
    EXPECT_EQ(ValidateRTSPClientHandle(0), -1);
}

TEST(Lifecycle, ClientsComeAndGoInAnyOrder) {
    for (const std::vector<std::size_t> &order : {std::vector<std::size_t>{1, 0, 2}, {0, 1, 2}, {2, 1, 0}}) {
        std::vector<intptr_t> clients = {RTSPClientCreate(), RTSPClientCreate(), RTSPClientCreate()};
        for (const std::size_t i : order) {
            EXPECT_EQ(ValidateRTSPClientHandle(clients[i]), 0);
            EXPECT_EQ(RTSPClientDestroy(clients[i]), 0);
            EXPECT_EQ(ValidateRTSPClientHandle(clients[i]), -1);
        }
    }
}

TEST(Lifecycle, ClientsOfManyThreadsDoNotDisturbEachOther) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([] {
            for (int round = 0; round < 100; ++round) {
                const Client client;
                EXPECT_EQ(ValidateRTSPClientHandle(client), 0);
            }
        });
    for (std::thread &thread : threads) thread.join();
}

TEST(Lifecycle, DestroyEndsTheSessionInEveryState) {
    if (!StandardInputIsOpen()) open("/dev/null", O_RDONLY);
    const std::size_t threads = CountThreads();
    const std::size_t descriptors = CountDescriptors();
    for (const uint32_t proto : {DATA_PROTO_UDP, DATA_PROTO_TCP}) {
        for (int state = CLIENT_INIT_STATE; state <= CLIENT_PAUSE_STATE; ++state) {
            Session session(proto, static_cast<RTSPClientState>(state));
            EXPECT_LT(SecondsOf([&] { EXPECT_EQ(session.client.Destroy(), 0); }), 2) << proto << " " << state;
            EXPECT_TRUE(session.server.WaitForClose());
            EXPECT_TRUE(Eventually([&] { return CountThreads() == threads + 1; })) << proto << " " << state;
        }
    }
    DestroyedClient();
    EXPECT_TRUE(StandardInputIsOpen());
    EXPECT_EQ(CountDescriptors(), descriptors);
}

TEST(Lifecycle, DestroyIsQuickWhenTheServerHasGone) {
    for (const uint32_t proto : {DATA_PROTO_UDP, DATA_PROTO_TCP}) {
        for (const auto state : {CLIENT_PLAYING_STATE, CLIENT_PAUSE_STATE}) {
            Session session(proto, state);
            session.server.Hangup();
            EXPECT_LT(SecondsOf([&] { EXPECT_EQ(session.client.Destroy(), 0); }), 2);
        }
    }
}

TEST(Lifecycle, OptionsWhilePlayingLeavesOnlyDestroy) {
    for (const uint32_t proto : {DATA_PROTO_UDP, DATA_PROTO_TCP}) {
        Session session(proto, CLIENT_PAUSE_STATE, {{"OPTIONS ", Ok()}});
        EXPECT_EQ(session.Options(), 0);
        EXPECT_EQ(session.Play(), RTSP_INVALID_STATE);
        EXPECT_EQ(session.Teardown(), RTSP_INVALID_STATE);
        EXPECT_LT(SecondsOf([&] { EXPECT_EQ(session.client.Destroy(), 0); }), 2);
    }
}
