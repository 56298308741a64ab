// Sessions over UDP from PLAY on: threads, media, pause, teardown, receiver reports.
#include "tests/support/captured_stdout.h"
#include "tests/support/session.h"

#include <gtest/gtest.h>
#include <unistd.h>

using namespace rtsptap::test;

namespace {

constexpr int32_t kVideo = RTP_CODEC_H264;
constexpr int32_t kAudio = RTP_CODEC_MPEG4_GENERIC;

void SendNumbers(const Session &session, int32_t stream, const std::vector<uint16_t> &numbers) {
    for (const uint16_t number : numbers) session.SendRtp(stream, Rtp(number));
}

std::size_t CountOf(const std::string &text, const std::string &line) {
    std::size_t count = 0;
    for (std::size_t at = text.find(line); at != std::string::npos; at = text.find(line, at + 1)) ++count;
    return count;
}

} // namespace

TEST(UdpSession, DeliversEachStreamInOrder) {
    Session session(DATA_PROTO_UDP, CLIENT_PLAYING_STATE);
    CapturedStdout out;
    SendNumbers(session, 1, {10, 12, 11});
    ASSERT_TRUE(Eventually([&] { return RTPClientGetNbOfPktInBuffer(session.client, kVideo) == 3; }));
    SendNumbers(session, 2, {65534, 65535, 0, 2});
    RTPStreamData *packet = TakePacket(session.client, kVideo);
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->packetIndex, 2U); // connect sets the counter to 1
    EXPECT_EQ(packet->packetLength, 20U);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(packet->payload), packet->payloadLength), "payload!");
    EXPECT_EQ(RTPClientFreeRTPStreamData(session.client, packet, kVideo), 0);
    EXPECT_EQ(TakeSequenceNumbers(session.client, kVideo, 2), Numbers(11, 12));
    EXPECT_EQ(TakeSequenceNumbers(session.client, kAudio, 4), (std::vector<uint16_t>{65534, 65535, 0, 2}));
    EXPECT_EQ(CountOf(out.Text(), "Reordering :: "), 1U);
    EXPECT_EQ(CountOf(out.Text(), "Reordering :: sequenceNumber : sequenceNumber prev :: 11 : 12 \n"), 1U);
    uint32_t ssrc = 0;
    EXPECT_EQ(RTSPClientGetSSRC(session.client, 2, &ssrc), 0);
    EXPECT_EQ(ssrc, 0x11223344U);
}

TEST(UdpSession, PlayStartsTwoThreadsForEachStreamThatIsNotPaused) {
    Session session(DATA_PROTO_UDP, CLIENT_READY_STATE,
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
    EXPECT_EQ(CountThreads(), before + 4);
    EXPECT_EQ(session.Pause(1), 0);
    EXPECT_EQ(ObservedState(session.client), CLIENT_PLAYING_STATE); // one stream still plays
    EXPECT_EQ(session.Pause(2), 0);
    EXPECT_EQ(ObservedState(session.client), CLIENT_PAUSE_STATE);
    EXPECT_EQ(session.Play(), 0);
    EXPECT_EQ(CountThreads(), before + 4);
}

TEST(UdpSession, PausedStreamLosesNothingThatArrived) {
    Session session(DATA_PROTO_UDP, CLIENT_PLAYING_STATE, {{"PAUSE {base}/track1 ", Ok()}, {"PLAY ", Ok()}});
    SendNumbers(session, 1, Numbers(1, 3));
    EXPECT_EQ(session.Pause(1), 0);
    SendNumbers(session, 1, Numbers(4, 9));
    SendNumbers(session, 2, Numbers(1, 2));
    EXPECT_EQ(TakeSequenceNumbers(session.client, kAudio, 2), Numbers(1, 2)); // the other stream plays on
    EXPECT_LE(RTPClientGetNbOfPktInBuffer(session.client, kVideo), 4); // a receive under way may end with one more
    EXPECT_EQ(session.Play(), 0);
    EXPECT_EQ(TakeSequenceNumbers(session.client, kVideo, 9), Numbers(1, 9));
}

TEST(UdpSession, RepeatedPlayCostsNothing) {
    constexpr uint16_t kTimes = 40;
    Session session(DATA_PROTO_UDP, CLIENT_PLAYING_STATE,
                    Times(kTimes, {"PLAY {base} ", Ok("Session: {session}")}));
    const std::size_t threads = CountThreads();
    const std::size_t descriptors = CountDescriptors();
    for (uint16_t i = 1; i <= kTimes; ++i) {
        SendNumbers(session, 1, {i});
        EXPECT_EQ(session.Play(), 0);
    }
    EXPECT_EQ(TakeSequenceNumbers(session.client, kVideo, kTimes), Numbers(1, kTimes));
    EXPECT_TRUE(Eventually([&] { return CountThreads() == threads && CountDescriptors() == descriptors; }));
}

TEST(UdpSession, EmptyDatagramEndsTheThreadAndPlayStartsItAgain) {
    Session session(DATA_PROTO_UDP, CLIENT_PLAYING_STATE, {{"PLAY ", Ok()}, {"TEARDOWN ", Ok()}});
    const std::size_t threads = CountThreads();
    SendNumbers(session, 1, Numbers(1, 2));
    session.SendRtp(1, "");
    EXPECT_TRUE(Eventually([&] { return CountThreads() == threads - 1; }));
    SendNumbers(session, 1, Numbers(3, 4));
    EXPECT_EQ(session.Play(), 0);
    EXPECT_EQ(TakeSequenceNumbers(session.client, kVideo, 4), Numbers(1, 4));
    session.SendRtp(1, "");
    EXPECT_EQ(session.Teardown(), 0);
}

TEST(UdpSession, FullBufferHoldsPacketsBackAndLosesNone) {
    // With a buffer below the largest packet one packet at a time has room.
    for (const int32_t ringBytes : {64, 40000}) {
        Session session(DATA_PROTO_UDP, CLIENT_PLAYING_STATE, {{"TEARDOWN ", Ok()}}, ringBytes);
        for (uint16_t i = 1; i <= 60; ++i)
            session.SendRtp(1, Rtp(i, std::string(ringBytes == 64 ? 20 : 1000, 'x')));
        EXPECT_EQ(TakeSequenceNumbers(session.client, kVideo, 40), Numbers(1, 40));
        RTPStreamData *held = TakePacket(session.client, kVideo);
        ASSERT_NE(held, nullptr);
        EXPECT_LT(SecondsOf([&] { EXPECT_EQ(session.Teardown(), 0); }), 2); // with the buffer full
        EXPECT_EQ(held->payload[held->payloadLength - 1], 'x');             // still the application's
        EXPECT_EQ(RTPClientFreeRTPStreamData(session.client, held, kVideo), 0);
    }
}

TEST(UdpSession, RejectedPacketsAloneDoNotBlockTheBuffer) {
    Session session(DATA_PROTO_UDP, CLIENT_PLAYING_STATE, {}, 1000);
    for (int i = 0; i < 50; ++i)
        session.SendRtp(1, Bytes(RtpPacket{.version = 1, .payload = std::string(200, 'x')}));
    SendNumbers(session, 1, {77});
    EXPECT_EQ(TakeSequenceNumbers(session.client, kVideo, 1), Numbers(77, 77));
}

TEST(UdpSession, HostilePacketsAreSurvived) {
    Session session(DATA_PROTO_UDP, CLIENT_PLAYING_STATE, {{"TEARDOWN ", Ok()}});
    std::string claims = Bytes(RtpPacket{.csrc = std::vector<uint32_t>(15), .extension = true, .payload = ""});
    claims.replace(claims.size() - 2, 2, "\xff\xff"); // an extension of 64 KiB that is not there
    for (std::size_t length = 1; length <= claims.size(); ++length) session.SendRtp(1, claims.substr(0, length));
    session.SendRtp(1, Bytes(RtpPacket{.payload = "", .padding = 255}).substr(0, 12) + "\xff");
    const auto rtcp = static_cast<uint16_t>(session.ClientPort(1) + 1);
    const std::string report = Bytes(SenderReport{});
    for (std::size_t length = 1; length <= report.size(); ++length)
        session.rtcp[0].SendTo(rtcp, report.substr(0, length));
    session.rtcp[0].SendTo(rtcp, report + std::string(60000, '\x80'));
    // Each is accepted: what a packet does not hold reads as 0.
    EXPECT_EQ(TakeSequenceNumbers(session.client, kVideo, claims.size() + 1).size(), claims.size() + 1);
    EXPECT_EQ(session.Teardown(), 0);
}

TEST(UdpSession, TeardownEndsEverythingAndTheClientCanStartOver) {
    std::size_t idle = 0;
    {
        Session unused(DATA_PROTO_UDP, CLIENT_OPTIONS_SENT_STATE);
        idle = CountDescriptors() - 2; // without both ends of the RTSP connection
    }
    const Script again = StepsTo(CLIENT_PLAYING_STATE, DATA_PROTO_UDP, 9, 9);
    Session session(DATA_PROTO_UDP, CLIENT_PAUSE_STATE, Script{{"TEARDOWN {base} ", Ok()}} + again);
    const std::size_t playing = CountDescriptors();
    EXPECT_EQ(session.Teardown(), 0);
    EXPECT_TRUE(session.server.WaitForClose());
    EXPECT_TRUE(Eventually([&] { return CountDescriptors() == idle; }));
    const auto play = [&](int32_t stream) { return [&session, stream] { return session.Play(stream); }; };
    const std::string notConnected = " :Client is created but is not connected to server\n";
    ExpectRefusals({
        {"play", play(1), -95, "EXIT : RTSPClientSendPlayRequest" + notConnected},
        {"pause", [&] { return session.Pause(0); }, -95, "EXIT : RTSPClientSendPauseRequest" + notConnected},
        {"pause 1", [&] { return session.Pause(1); }, -99,
         "EXIT : RTSPClientSendPauseRequest :Invalid Stream Number\n"},
        {"teardown", [&] { return session.Teardown(); }, -95,
         "EXIT : RTSPClientSendTeardownRequest" + notConnected},
    });
    EXPECT_EQ(session.Connect(), 0);
    EXPECT_EQ(session.Describe(), 0);
    EXPECT_EQ(session.Setup(1), 0);
    EXPECT_EQ(session.Setup(2), 0);
    EXPECT_EQ(session.Play(), 0);
    SendNumbers(session, 2, Numbers(1, 3));
    EXPECT_EQ(TakeSequenceNumbers(session.client, kAudio, 3), Numbers(1, 3));
    EXPECT_EQ(CountDescriptors(), playing);
}

TEST(UdpSession, StreamNeverPlayedIsTornDownWithoutWaiting) {
    Session session(DATA_PROTO_UDP, CLIENT_READY_STATE, {{"PLAY {base}/track2 ", Ok()}, {"TEARDOWN ", Ok()}});
    EXPECT_EQ(session.Teardown(), RTSP_INVALID_STATE); // only set up
    EXPECT_EQ(session.Play(2), 0);
    EXPECT_LT(SecondsOf([&] { EXPECT_EQ(session.Teardown(), 0); }), 2);
}

TEST(UdpSession, ReceiverReportAnswersEachAcceptedPacket) {
    Session session(DATA_PROTO_UDP, CLIENT_PLAYING_STATE);
    const auto port = static_cast<uint16_t>(session.ClientPort(1) + 1);
    const UdpPeer &peer = session.rtcp[0];
    SendNumbers(session, 1, {1000, 1001, 1002});
    EXPECT_EQ(TakeSequenceNumbers(session.client, kVideo, 3), Numbers(1000, 1002));
    const std::string host = [] {
        char name[28] = {};
        return gethostname(name, sizeof name) == 0 ? std::string(name, strnlen(name, sizeof name)) : std::string();
    }();
    const std::size_t sdes = host.empty() ? 0 : (host.size() + 1 + 13) / 4 * 4;

    peer.SendTo(port, RtcpPacket(201, {1}));
    std::string report = peer.Receive();
    ASSERT_EQ(report.size(), 32 + sdes);
    EXPECT_EQ(Word32(report, 0), 0x81C90007U);
    EXPECT_EQ(Word32(report, 8), 0x11223344U); // the sender's SSRC
    EXPECT_EQ(Word32(report, 12) & 0xFF000000U, 0U);
    EXPECT_EQ(Word32(report, 16), 1002U);
    for (const std::size_t at : {20U, 24U, 28U})
        EXPECT_EQ(Word32(report, at), 0U) << at; // jitter; no sender report yet
    if (sdes > 0) {
        EXPECT_EQ(Word32(report, 32), 0x81CA0000U + sdes / 4 - 1);
        EXPECT_EQ(report.substr(36, 4), report.substr(4, 4)); // our SSRC
        EXPECT_EQ(report.substr(40), std::string(1, '\1') + static_cast<char>(host.size() + 1) + host +
                                         std::string(sdes - 10 - host.size(), '\0'));
    }

    peer.SendTo(port, Bytes(SenderReport{.ntpMsw = 0xAAAABBBB, .ntpLsw = 0xCCCCDDDD, .rtpTimestamp = 90000}));
    report = peer.Receive();
    ASSERT_GE(report.size(), 32U);
    EXPECT_EQ(Word32(report, 24), 0xBBBBCCCCU);
    EXPECT_EQ(Word32(report, 28), 1U);

    CapturedStdout out;
    for (const auto &[type, answered] : {std::pair(203U, true), std::pair(100U, true), std::pair(202U, false)}) {
        peer.SendTo(port, RtcpPacket(type, {1}));
        EXPECT_EQ(peer.Receive(answered ? 5000 : 100).empty(), !answered) << type;
    }
    EXPECT_NE(out.Text().find("Received RTCP Bye packet\n"), std::string::npos);
}

TEST(UdpSession, TimestampOffsetComesFromTheSenderReports) {
    Session session(DATA_PROTO_UDP, CLIENT_PLAYING_STATE);
    const uint32_t timestamps[] = {90000, 44100 * 3};
    for (int32_t stream = 1; stream <= 2; ++stream) {
        const UdpPeer &peer = session.rtcp[stream - 1];
        peer.SendTo(static_cast<uint16_t>(session.ClientPort(stream) + 1),
                    Bytes(SenderReport{.rtpTimestamp = timestamps[stream - 1]}));
        EXPECT_FALSE(peer.Receive().empty());
    }
    uint32_t offset = 0;
    EXPECT_EQ(RTPClientGetTSOffset(session.client, kAudio, &offset, 44100), 0);
    EXPECT_EQ(offset, static_cast<uint32_t>(static_cast<int32_t>(timestamps[1] * 90000U) / 44100) - 90000U);
}
