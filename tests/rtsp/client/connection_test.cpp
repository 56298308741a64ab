#include "tests/support/session.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace rtsptap::test;

TEST(Connection, ClientsComeAndGoWhileOthersAreAsked) {
    CapturedStdout out;
    const Client kept;
    const int32_t onStack = 0;
    std::atomic<bool> over{false};
    std::atomic<int> wrong{0};
    std::vector<std::thread> pollers;
    for (int i = 0; i < 8; ++i)
        pollers.emplace_back([&] {
            while (!over) {
                if (RTPClientGetNbOfPktInBuffer(kept, kVideo) != RTSP_FAILURE) ++wrong; // it has no stream
                for (const intptr_t handle : {intptr_t{0}, intptr_t{1}, reinterpret_cast<intptr_t>(&onStack)})
                    if (ValidateRTSPClientHandle(handle) == 0) ++wrong;
            }
        });
    EXPECT_LT(SecondsOf([&] {
                  for (int round = 0; round < 5; ++round) {
                      std::vector<intptr_t> handles(100);
                      for (intptr_t &handle : handles) handle = RTSPClientCreate();
                      for (const intptr_t handle : handles) EXPECT_EQ(ValidateRTSPClientHandle(handle), 0);
                      for (const intptr_t handle : handles) EXPECT_EQ(RTSPClientDestroy(handle), 0);
                      for (const intptr_t handle : handles) EXPECT_EQ(ValidateRTSPClientHandle(handle), -1);
                  }
              }),
              10);
    over = true;
    for (std::thread &poller : pollers) poller.join();
    EXPECT_EQ(wrong, 0);
}

TEST(Connection, LongestAddressAndNameAreAccepted) {
    const std::string ip31 = "127.0.0." + std::string(22, '0') + "1";
    const std::string name63(63, 'n');
    ScriptedServer server({{("OPTIONS rtsp://" + ip31 + ":{port}/" + name63 + " RTSP/1.0\r\n"), Ok()}});
    const Client client;
    EXPECT_EQ(RTSPClientConnect(client, ip31.c_str(), server.Port(), name63.c_str(), kUdp, 0), 0);
    int32_t size = 100;
    EXPECT_EQ(RTSPClientSendOptionsRequest(client, 0, nullptr, &size), 0);
    EXPECT_EQ(size, 28); // stored without a buffer too
}

TEST(Connection, ConnectingAgainKeepsTheOldConnectionOpenUntilDestroy) {
    Session session(kUdp, CLIENT_INIT_STATE, Times(2, {"OPTIONS ", Ok()}));
    EXPECT_EQ(session.Options(), 0); // the server has accepted
    const std::size_t descriptors = CountDescriptors();
    EXPECT_EQ(session.Connect(), 0);
    EXPECT_EQ(session.Options(), 0);
    EXPECT_EQ(session.client.Destroy(), 0);
    EXPECT_TRUE(session.server.WaitForClose());
    // Of the old connection the server still has its end.
    EXPECT_TRUE(Eventually([&] { return CountDescriptors() == descriptors - 1; }));
}

// The whole of a session, byte for byte.
TEST(Connection, RequestsOfAnInterleavedSession) {
    const HeaderList own({{"CSeq", "9"},
                          {"X-Own", "a"},
                          {"User-Agent", "Tester"},
                          {"Range", "npt=5-"},
                          {"range", "b"},
                          {"Bandwidth", "bw=64000"}},
                         1);
    const std::string ownAtPlay = "\r\nUser-Agent: Tester\r\nRange: npt=5-\r\nSession: {session}\r\nCSeq: 9\r\n"
                                  "X-Own: a\r\nrange: b\r\nBandwidth: bw=64000\r\n\r\n";
    Session session(kTcp, CLIENT_PLAYING_STATE,
                    Script{{"PAUSE ", Ok()}} + Times(2, {"PLAY ", Ok()}) + Script{{"TEARDOWN ", Ok()}});
    EXPECT_EQ(session.Pause(2), 0);
    for (int i = 0; i < 2; ++i) // the same list serves the next request
        EXPECT_EQ(RTSPClientSendPlayRequest(session.client, 2, own, nullptr, nullptr), 0);
    EXPECT_EQ(session.Teardown(), 0);
    const std::string kRequests[] = {
        "DESCRIBE {base} RTSP/1.0\r\nCSeq: 1\r\nUser-Agent: Rtp Rtsp Client\r\nAccept: application/sdp\r\n\r\n",
        "SETUP {base}/track1 RTSP/1.0\r\nCSeq: 2\r\nUser-Agent: Rtp Rtsp Client\r\n"
        "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n\r\n",
        "SETUP {base}/track2 RTSP/1.0\r\nCSeq: 3\r\nUser-Agent: Rtp Rtsp Client\r\nSession: {session}\r\n"
        "Transport: RTP/AVP/TCP;unicast;interleaved=2-3\r\n\r\n",
        "PLAY {base} RTSP/1.0\r\nCSeq: 4\r\nUser-Agent: Rtp Rtsp Client\r\nRange: npt=0.000-\r\n"
        "Session: {session}\r\n\r\n",
        "PAUSE {base}/track2 RTSP/1.0\r\nCSeq: 5\r\nUser-Agent: Rtp Rtsp Client\r\nSession: {session}\r\n\r\n",
        "PLAY {base}/track2 RTSP/1.0\r\nCSeq: 6" + ownAtPlay,
        "PLAY {base}/track2 RTSP/1.0\r\nCSeq: 7" + ownAtPlay,
        "TEARDOWN {base} RTSP/1.0\r\nCSeq: 8\r\nUser-Agent: Rtp Rtsp Client\r\nSession: {session}\r\n\r\n",
    };
    const std::vector<std::string> requests = session.server.Requests();
    ASSERT_EQ(requests.size(), std::size(kRequests));
    for (std::size_t i = 0; i < requests.size(); ++i) EXPECT_EQ(requests[i], session.server.Expand(kRequests[i]));
}
