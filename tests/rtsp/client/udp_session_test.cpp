// Sessions over UDP from PLAY on: threads, media, pause, teardown, receiver reports.
#include "tests/support/captured_stdout.h"
#include "tests/support/session.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>

using namespace rtsptap::test;

TEST(UdpSession, DeliversEachStreamInOrder) {
    Session session(kUdp, CLIENT_PLAYING_STATE);
    CapturedStdout out;
    session.SendNumbers(1, {10, 12, 11});
    ASSERT_TRUE(Eventually([&] { return RTPClientGetNbOfPktInBuffer(session.client, kVideo) == 3; }));
    session.SendNumbers(2, {65534, 65535, 0, 2});
    RTPStreamData *packet = TakePacket(session.client, kVideo);
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->packetIndex, 2U); // connect sets the counter to 1
    EXPECT_EQ(packet->packetLength, 20U);
    EXPECT_EQ(PayloadOf(*packet), "payload!");
    EXPECT_EQ(RTPClientFreeRTPStreamData(session.client, packet, kVideo), 0);
    EXPECT_EQ(session.Video(2), Numbers(11, 12));
    EXPECT_EQ(session.Audio(4), (std::vector<uint16_t>{65534, 65535, 0, 2}));
    EXPECT_EQ(CountOf(out.Text(), "Reordering :: "), 1U);
    EXPECT_EQ(CountOf(out.Text(), "Reordering :: sequenceNumber : sequenceNumber prev :: 11 : 12 \n"), 1U);
}

TEST(UdpSession, PlayStartsTwoThreadsForEachStreamThatIsNotPaused) {
    Session session(kUdp, CLIENT_READY_STATE,
                    {{"PLAY {base}/track2 ", Status(202, "Accepted")},
                     {"PLAY {base}/track2 ", Ok()},
                     {"PLAY {base}/track1 ", Ok()},
                     {"PAUSE {base}/track1 ", Ok()},
                     {"PAUSE {base}/track2 ", Ok()},
                     {"PLAY {base} ", Ok()}});
    const std::size_t before = CountThreads();
    EXPECT_EQ(session.Play(2), 0); // Kept: a code below 300 other than 200 succeeds and starts nothing
    EXPECT_EQ(CountThreads(), before);
    EXPECT_EQ(session.Play(2), 0);
    EXPECT_EQ(CountThreads(), before + 2);
    EXPECT_EQ(session.Play(1), 0);
    EXPECT_EQ(session.Pause(1), 0);
    EXPECT_EQ(ObservedState(session.client), CLIENT_PLAYING_STATE); // one stream still plays
    EXPECT_EQ(session.Pause(2), 0);
    EXPECT_EQ(ObservedState(session.client), CLIENT_PAUSE_STATE);
    EXPECT_EQ(session.Play(), 0);
    EXPECT_EQ(CountThreads(), before + 4);
}

TEST(UdpSession, PausedStreamLosesNothingThatArrived) {
    Session session(kUdp, CLIENT_PLAYING_STATE, {{"PAUSE {base}/track1 ", Ok()}, {"PLAY ", Ok()}});
    session.SendNumbers(1, Numbers(1, 3));
    EXPECT_EQ(session.Pause(1), 0);
    session.SendNumbers(1, Numbers(4, 9));
    session.SendNumbers(2, Numbers(1, 2));
    EXPECT_EQ(session.Audio(2), Numbers(1, 2));                        // the other stream plays on
    EXPECT_LE(RTPClientGetNbOfPktInBuffer(session.client, kVideo), 4); // a receive under way may end with one more
    EXPECT_EQ(session.Play(), 0);
    EXPECT_EQ(session.Video(9), Numbers(1, 9));
}

TEST(UdpSession, RepeatedPlayCostsNothing) {
    constexpr uint16_t kTimes = 40;
    Session session(kUdp, CLIENT_PLAYING_STATE, Times(kTimes, {"PLAY {base} ", Ok("Session: {session}")}));
    const std::size_t threads = CountThreads();
    const std::size_t descriptors = CountDescriptors();
    for (uint16_t i = 1; i <= kTimes; ++i) {
        session.SendNumbers(1, Numbers(i, i));
        EXPECT_EQ(session.Play(), 0);
    }
    EXPECT_EQ(session.Video(kTimes), Numbers(1, kTimes));
    EXPECT_TRUE(Eventually([&] { return CountThreads() == threads && CountDescriptors() == descriptors; }));
}

TEST(UdpSession, EmptyDatagramEndsTheThreadAndPlayStartsItAgain) {
    Session session(kUdp, CLIENT_PLAYING_STATE, {{"PLAY ", Ok()}, {"TEARDOWN ", Ok()}});
    const std::size_t threads = CountThreads();
    session.SendNumbers(1, Numbers(1, 2));
    session.SendRtp(1, "");
    EXPECT_TRUE(Eventually([&] { return CountThreads() == threads - 1; }));
    session.SendNumbers(1, Numbers(3, 4));
    EXPECT_EQ(session.Play(), 0);
    EXPECT_EQ(session.Video(4), Numbers(1, 4));
    session.SendRtp(1, "");
    EXPECT_EQ(session.Teardown(), 0);
}

TEST(UdpSession, FullBufferHoldsPacketsBackAndLosesNone) {
    for (const int32_t ringBytes : {64, 40000}) { // below the largest packet there is room for one at a time
        Session session(kUdp, CLIENT_PLAYING_STATE, {{"TEARDOWN ", Ok()}}, ringBytes);
        for (const uint16_t number : Numbers(1, 60))
            session.SendRtp(1, Rtp(number, std::string(ringBytes == 64 ? 20 : 1000, 'x')));
        EXPECT_EQ(session.Video(40), Numbers(1, 40));
        RTPStreamData *held = TakePacket(session.client, kVideo);
        ASSERT_NE(held, nullptr);
        EXPECT_TRUE(SucceedsSoon([&] { return session.Teardown(); })); // with the buffer full
        EXPECT_EQ(PayloadOf(*held).back(), 'x');                       // still the application's
        EXPECT_EQ(RTPClientFreeRTPStreamData(session.client, held, kVideo), 0);
    }
}

TEST(UdpSession, HostilePacketsAreSurvived) {
    Session session(kUdp, CLIENT_PLAYING_STATE, {{"TEARDOWN ", Ok()}}, 1000);
    // Refused packets alone fill the buffer many times over.
    for (int i = 0; i < 50; ++i)
        session.SendRtp(1, Bytes(RtpPacket{.version = 1, .payload = std::string(200, 'x')}));
    std::string claims = Bytes(RtpPacket{.csrc = std::vector<uint32_t>(15), .extension = true, .payload = ""});
    claims.replace(claims.size() - 2, 2, "\xff\xff"); // an extension of 64 KiB that is not there
    for (std::size_t length = 1; length <= claims.size(); ++length) session.SendRtp(1, claims.substr(0, length));
    session.SendRtp(1, Bytes(RtpPacket{.payload = "", .padding = 255}).substr(0, 12) + "\xff");
    const std::string report = Bytes(SenderReport{});
    for (std::size_t length = 1; length <= report.size(); ++length)
        session.rtcp[0].SendTo(session.ClientRtcpPort(1), report.substr(0, length));
    session.rtcp[0].SendTo(session.ClientRtcpPort(1), report + std::string(60000, '\x80'));
    // Each is accepted: what a packet does not hold reads as 0.
    EXPECT_EQ(session.Video(claims.size() + 1).size(), claims.size() + 1);
    EXPECT_EQ(session.Teardown(), 0);
}

TEST(UdpSession, TeardownEndsEverythingAndTheClientCanStartOver) {
    std::size_t idle = 0;
    {
        Session unused(kUdp, CLIENT_OPTIONS_SENT_STATE);
        idle = CountDescriptors() - 2; // without both ends of the RTSP connection
    }
    Session session(kUdp, CLIENT_PAUSE_STATE, Script{{"TEARDOWN ", Ok()}} + StepsTo(CLIENT_PLAYING_STATE, kUdp));
    const std::size_t paused = CountDescriptors();
    EXPECT_EQ(session.Teardown(), 0);
    EXPECT_TRUE(session.server.WaitForClose());
    EXPECT_TRUE(Eventually([&] { return CountDescriptors() == idle; }));
    const std::string notConnected = " :Client is created but is not connected to server\n";
    ExpectRefusals("RTSPClientSendPlayRequest", {{"play", [&] { return session.Play(1); }, -95, notConnected}});
    ExpectRefusals("RTSPClientSendPauseRequest",
                   {{"all", [&] { return session.Pause(0); }, -95, notConnected},
                    {"stream 1 of none", [&] { return session.Pause(1); }, -99, " :Invalid Stream Number\n"}});
    ExpectRefusals("RTSPClientSendTeardownRequest",
                   {{"again", [&] { return session.Teardown(); }, -95, notConnected}});
    session.Reach(CLIENT_PLAYING_STATE);
    session.SendNumbers(2, Numbers(1, 3));
    EXPECT_EQ(session.Audio(3), Numbers(1, 3));
    EXPECT_EQ(CountDescriptors(), paused);
}

TEST(UdpSession, StreamNeverPlayedIsTornDownWithoutWaiting) {
    Session session(kUdp, CLIENT_READY_STATE, {{"PLAY {base}/track2 ", Ok()}, {"TEARDOWN ", Ok()}});
    EXPECT_EQ(session.Play(2), 0);
    EXPECT_TRUE(SucceedsSoon([&] { return session.Teardown(); }));
}

TEST(UdpSession, ReceiverReportAnswersEachAcceptedPacket) {
    Session session(kUdp, CLIENT_PLAYING_STATE);
    const uint16_t port = session.ClientRtcpPort(1);
    const UdpPeer &peer = session.rtcp[0];
    session.SendNumbers(1, Numbers(1000, 1002));
    EXPECT_EQ(session.Video(3), Numbers(1000, 1002));
    char host[28] = {};
    const bool named = gethostname(host, sizeof host) == 0; // a longer name is left out
    const std::size_t sdes = named ? (strlen(host) + 1 + 13) / 4 * 4 : 0;

    peer.SendTo(port, RtcpPacket(201, {1}));
    std::string report = peer.Receive();
    ASSERT_EQ(report.size(), 32 + sdes);
    EXPECT_EQ(Word32(report, 0), 0x81C90007U);
    EXPECT_EQ(Word32(report, 8), 0x11223344U); // the sender's SSRC
    EXPECT_EQ(Word32(report, 16), 1002U);
    for (const std::size_t at : {20U, 24U, 28U})
        EXPECT_EQ(Word32(report, at), 0U) << at; // jitter; no sender report yet
    if (named) {
        EXPECT_EQ(Word32(report, 32), 0x81CA0000U + sdes / 4 - 1);
        EXPECT_EQ(report.substr(36, 4), report.substr(4, 4)); // our SSRC
        EXPECT_EQ(report.substr(40), std::string(1, '\1') + static_cast<char>(strlen(host) + 1) + host +
                                         std::string(sdes - 10 - strlen(host), '\0'));
    }

    peer.SendTo(port, Bytes(SenderReport{.ntpMsw = 0xAAAABBBB, .ntpLsw = 0xCCCCDDDD}));
    report = peer.Receive();
    ASSERT_GE(report.size(), 32U);
    EXPECT_EQ(Word32(report, 24), 0xBBBBCCCCU);
    EXPECT_EQ(Word32(report, 28), 1U);

    CapturedStdout out;
    for (const auto &[type, answered] : {std::pair(203U, true), std::pair(100U, true), std::pair(202U, false)}) {
        peer.SendTo(port, RtcpPacket(type, {1}));
        EXPECT_EQ(peer.Receive(answered ? 5000 : 100).empty(), !answered) << type;
    }
    EXPECT_EQ(CountOf(out.Text(), "Received RTCP Bye packet\n"), 1U);
}

TEST(UdpSession, TimestampOffsetComesFromTheSenderReports) {
    Session session(kUdp, CLIENT_PLAYING_STATE);
    const uint32_t timestamps[] = {90000, 44100 * 3};
    for (int32_t stream = 1; stream <= 2; ++stream) {
        const UdpPeer &peer = session.rtcp[stream - 1];
        peer.SendTo(session.ClientRtcpPort(stream), Bytes(SenderReport{.rtpTimestamp = timestamps[stream - 1]}));
        EXPECT_FALSE(peer.Receive().empty());
    }
    uint32_t offset = 0;
    EXPECT_EQ(RTPClientGetTSOffset(session.client, kAudio, &offset, 44100), 0);
    EXPECT_EQ(offset, static_cast<uint32_t>(static_cast<int32_t>(timestamps[1] * 90000U) / 44100) - 90000U);
}
