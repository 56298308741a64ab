// Sessions whose media, receiver reports and replies share the RTSP connection.
#include "tests/support/captured_stdout.h"
#include "tests/support/session.h"

#include <gtest/gtest.h>

#include <thread>

using namespace rtsptap::test;

namespace {

constexpr int32_t kVideo = RTP_CODEC_H264;
constexpr int32_t kAudio = RTP_CODEC_MPEG4_GENERIC;
constexpr char kCorrupted[] = "Error: corrupted stream ($/RTSP not found)\n";

std::string Frames(uint16_t first, uint16_t last, unsigned channel = 0) {
    std::string bytes;
    for (const uint16_t number : Numbers(first, last)) bytes += Frame(channel, Rtp(number));
    return bytes;
}

std::size_t CountOf(const std::string &text, const std::string &line) {
    std::size_t count = 0;
    for (std::size_t at = text.find(line); at != std::string::npos; at = text.find(line, at + 1)) ++count;
    return count;
}

void WaitMs(int milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }

} // namespace

TEST(Interleaved, FramesReachTheStreamOfTheirChannelInOrderOfArrival) {
    Session session(DATA_PROTO_TCP, CLIENT_DESCRIBE_SENT_STATE,
                    {{"SETUP {base}/track1 ", Ok("Transport: RTP/AVP/TCP;unicast;interleaved=4-5")},
                     {"SETUP {base}/track2 ", Ok()},
                     {"PLAY ", Ok()}});
    CapturedStdout out;
    EXPECT_EQ(session.Setup(1), 0);
    EXPECT_NE(out.Text().find("!!!INFO!!! : RTSPClientSendSetupRequest(2534) Interleaved: 0x04\n"),
              std::string::npos);
    EXPECT_EQ(session.Setup(2), 0);
    EXPECT_EQ(session.Play(), 0);
    session.server.Send(Frame(4, Rtp(5)) + Frame(2, Rtp(100)) + Frame(4, Rtp(3)) + Frame(4, Rtp(9)));
    EXPECT_EQ(TakeSequenceNumbers(session.client, kVideo, 2), (std::vector<uint16_t>{5, 3})); // not reordered
    RTPStreamData *packet = TakePacket(session.client, kVideo);
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->lossFlag, 0U); // nor counted as lost
    EXPECT_EQ(std::string(reinterpret_cast<char *>(packet->payload), packet->payloadLength), "payload!");
    EXPECT_EQ(RTPClientFreeRTPStreamData(session.client, packet, kVideo), 0);
    EXPECT_EQ(TakeSequenceNumbers(session.client, kAudio, 1), Numbers(100, 100));
}

TEST(Interleaved, FramesInTheSameWriteAsTheFirstPlayReplyAreKept) {
    const std::string last = Frames(6, 6);
    for (const uint16_t whole : std::vector<uint16_t>{0, 1, 2, 5}) {
        for (const std::size_t cut : {std::size_t{1}, std::size_t{3}, std::size_t{4}, std::size_t{9}}) {
            const Reply reply =
                Ok() + SendBytes(Frames(1, whole) + last.substr(0, cut)) + Delay(20) + SendBytes(last.substr(cut));
            Session session(DATA_PROTO_TCP, CLIENT_READY_STATE, {{"PLAY ", reply}});
            char buffer[256] = {};
            int32_t size = sizeof buffer;
            EXPECT_EQ(RTSPClientSendPlayRequest(session.client, 0, 0, buffer, &size), 0);
            EXPECT_STREQ(buffer, "RTSP/1.0 200 OK\r\nCSeq: 4\r\n\r\n");
            std::vector<uint16_t> expected = Numbers(1, whole);
            expected.push_back(6);
            EXPECT_EQ(TakeSequenceNumbers(session.client, kVideo, expected.size()), expected)
                << whole << " " << cut;
        }
    }
}

TEST(Interleaved, FramesBeforeTheFirstPlayReplyAreKept) {
    Session session(DATA_PROTO_TCP, CLIENT_READY_STATE,
                    {{"PLAY ", SendBytes(Frames(1, 2)) + Delay(20) + SendBytes(Frames(3, 3)) + Ok()}});
    char buffer[64] = {};
    int32_t size = sizeof buffer;
    EXPECT_EQ(RTSPClientSendPlayRequest(session.client, 0, 0, buffer, &size), 0);
    EXPECT_STREQ(buffer, "RTSP/1.0 200 OK\r\nCSeq: 4\r\n\r\n");
    EXPECT_EQ(TakeSequenceNumbers(session.client, kVideo, 3), Numbers(1, 3));
}

TEST(Interleaved, RepliesMaySplitAnywhere) {
    const std::string reply = "RTSP/1.0 200 OK\r\nSession: 12345678\r\n\r\n";
    Script repeated;
    for (std::size_t cut = 1; cut < reply.size(); ++cut) {
        const auto number = static_cast<uint16_t>(cut);
        const Step step = {"PLAY ", Pieces(reply + Frames(number, number), {cut}, 2)};
        Session first(DATA_PROTO_TCP, CLIENT_READY_STATE, {step});
        EXPECT_EQ(first.Play(), 0) << cut;
        EXPECT_EQ(TakeSequenceNumbers(first.client, kVideo, 1), Numbers(number, number));
        repeated.push_back(step);
    }
    Session session(DATA_PROTO_TCP, CLIENT_PLAYING_STATE, repeated);
    for (std::size_t cut = 1; cut < reply.size(); ++cut) {
        char buffer[64] = {};
        int32_t size = sizeof buffer;
        EXPECT_EQ(RTSPClientSendPlayRequest(session.client, 0, 0, buffer, &size), 0) << cut;
        EXPECT_EQ(buffer, reply);
    }
    EXPECT_EQ(TakeSequenceNumbers(session.client, kVideo, reply.size() - 1),
              Numbers(1, static_cast<uint16_t>(reply.size() - 1)));
}

TEST(Interleaved, UnfinishedReplyIsTakenAsFarAsItCame) {
    for (const auto state : {CLIENT_READY_STATE, CLIENT_PLAYING_STATE}) {
        Session session(DATA_PROTO_TCP, state, {{"PLAY ", SendBytes("RTSP/1.0 200 OK\r\nSess")}});
        EXPECT_LT(SecondsOf([&] { EXPECT_EQ(session.Play(), 0); }), 2);
    }
}

TEST(Interleaved, FramesMaySplitAnywhere) {
    Session session(DATA_PROTO_TCP, CLIENT_PLAYING_STATE);
    const std::size_t length = Frames(1, 2).size();
    uint16_t number = 0;
    for (std::size_t cut = 1; cut < length; ++cut, number = static_cast<uint16_t>(number + 2)) {
        const std::string bytes = Frames(static_cast<uint16_t>(number + 1), static_cast<uint16_t>(number + 2));
        session.server.Send(bytes.substr(0, cut));
        WaitMs(2);
        session.server.Send(bytes.substr(cut));
    }
    for (const char byte : Frames(static_cast<uint16_t>(number + 1), static_cast<uint16_t>(number + 3)))
        session.server.Send(std::string(1, byte));
    number = static_cast<uint16_t>(number + 3);
    EXPECT_EQ(TakeSequenceNumbers(session.client, kVideo, number), Numbers(1, number));
}

TEST(Interleaved, RepliesAreFoundAmongFrames) {
    const std::string partial = Frames(9, 9);
    const Reply first =
        SendBytes(Frames(1, 2)) + Ok("Session: {session}") +
        SendBytes(Frames(3, 3) + Frame(1, Bytes(SenderReport{})) + Frames(4, 8) + partial.substr(0, 7)) +
        Delay(20) + SendBytes(partial.substr(7));
    const Reply second = SendBytes(Frames(10, 10)) + Delay(10) + Ok() + SendBytes(Frames(11, 11));
    Session session(DATA_PROTO_TCP, CLIENT_PLAYING_STATE,
                    {{"PLAY ", first}, {"PLAY ", second}, {"TEARDOWN ", first}});
    EXPECT_EQ(session.Play(), 0);
    EXPECT_EQ(session.Play(), 0);
    EXPECT_EQ(TakeSequenceNumbers(session.client, kVideo, 11), Numbers(1, 11));
    EXPECT_EQ(session.server.WaitForFrames(1).size(), 1U); // the sender report was answered
    EXPECT_EQ(session.Teardown(), 0);
    EXPECT_TRUE(session.server.WaitForClose());
}

TEST(Interleaved, PauseAndResumeWithMediaFlowingLoseNothing) {
    Session session(DATA_PROTO_TCP, CLIENT_PLAYING_STATE,
                    {{"PAUSE {base} ", SendBytes(Frames(1, 3)) + Ok() + Delay(30) + SendBytes(Frames(4, 9))},
                     {"PLAY {base} ", SendBytes(Frames(10, 12)) + Ok() + SendBytes(Frames(13, 13))},
                     {"PAUSE {base} ", Ok() + Delay(30) + SendBytes(Frames(14, 20))},
                     {"TEARDOWN {base} ", Ok()}});
    const std::size_t threads = CountThreads();
    EXPECT_EQ(session.Pause(), 0);
    WaitMs(50);
    EXPECT_EQ(session.Play(), 0);
    EXPECT_TRUE(Eventually([&] { return CountThreads() == threads; }));
    EXPECT_EQ(TakeSequenceNumbers(session.client, kVideo, 13), Numbers(1, 13));
    EXPECT_EQ(session.Pause(), 0);
    WaitMs(50);
    EXPECT_LT(SecondsOf([&] { EXPECT_EQ(session.Teardown(), 0); }), 2); // its reply lies behind frames not yet read
}

TEST(Interleaved, PauseOfOneStreamLeavesTheConnectionServed) {
    Session session(DATA_PROTO_TCP, CLIENT_PLAYING_STATE,
                    {{"PAUSE {base}/track1 ", Ok()},
                     {"PLAY {base}/track1 ", Ok()},
                     {"PAUSE {base}/track1 ", Ok()},
                     {"PAUSE {base}/track2 ", Ok()},
                     {"TEARDOWN ", Ok()}});
    EXPECT_EQ(session.Pause(1), 0);
    session.server.Send(Frames(1, 2, 2));
    EXPECT_EQ(TakeSequenceNumbers(session.client, kAudio, 2), Numbers(1, 2));
    EXPECT_EQ(session.Play(1), 0);
    EXPECT_EQ(session.Pause(1), 0);
    EXPECT_EQ(ObservedState(session.client), CLIENT_PLAYING_STATE);
    EXPECT_EQ(session.Pause(2), 0);
    EXPECT_EQ(ObservedState(session.client), CLIENT_PAUSE_STATE);
    EXPECT_EQ(session.Teardown(), 0);
}

TEST(Interleaved, PlayOfTheSecondStreamAloneIsServed) {
    Session session(DATA_PROTO_TCP, CLIENT_READY_STATE, {{"PLAY {base}/track2 ", Ok()}, {"TEARDOWN ", Ok()}});
    EXPECT_EQ(session.Play(2), 0);
    session.server.Send(Frames(1, 2, 2));
    EXPECT_EQ(TakeSequenceNumbers(session.client, kAudio, 2), Numbers(1, 2));
    EXPECT_EQ(session.Teardown(), 0);
}

TEST(Interleaved, OptionsWhilePlayingIsAnsweredThroughTheReceiveThread) {
    Session session(
        DATA_PROTO_TCP, CLIENT_PLAYING_STATE,
        {{"OPTIONS ", Ok()}, {"OPTIONS ", Ok() + SendBytes(Frames(3, 3))}, {"DESCRIBE ", WithBody(kDescription)}});
    for (uint16_t i = 1; i <= 2; ++i) {
        session.server.Send(Frames(i, i));
        EXPECT_EQ(session.Options(), 0);
    }
    EXPECT_EQ(TakeSequenceNumbers(session.client, kVideo, 3), Numbers(1, 3));
    EXPECT_EQ(session.Pause(), RTSP_INVALID_STATE);
    EXPECT_EQ(session.Describe(), 0); // allowed again; its streams follow those that play
    EXPECT_EQ(RTSPClientGetNbStreams(session.client), 4);
    session.server.Send(Frames(4, 4));
    EXPECT_EQ(TakeSequenceNumbers(session.client, kVideo, 1), Numbers(4, 4));
}

TEST(Interleaved, ConnectingAgainLeavesNothingOfTheOldConnection) {
    const Script connected = StepsTo(CLIENT_PLAYING_STATE, DATA_PROTO_TCP);
    const std::string partial = Frames(9, 9).substr(0, 9);
    Session session(DATA_PROTO_TCP, CLIENT_PLAYING_STATE,
                    Script{{"TEARDOWN ", Ok() + SendBytes(partial)}} + connected + Script{{"PAUSE ", Ok()}});
    EXPECT_EQ(session.Teardown(), 0);
    EXPECT_EQ(session.Connect(), 0);
    EXPECT_EQ(session.Describe(), 0);
    EXPECT_EQ(session.Setup(1), 0);
    EXPECT_EQ(session.Setup(2), 0);
    EXPECT_LT(SecondsOf([&] { EXPECT_EQ(session.Play(), 0); }), 2);
    session.server.Send(Frames(1, 1) + partial);
    EXPECT_EQ(TakeSequenceNumbers(session.client, kVideo, 1), Numbers(1, 1));
    EXPECT_EQ(session.Connect(), 0); // while playing: the thread goes on with the new connection
    EXPECT_LT(SecondsOf([&] { EXPECT_EQ(session.Pause(), 0); }), 2);
}

TEST(Interleaved, ThreadsOfAnEarlierUdpSessionEndBeforePlay) {
    Session session(DATA_PROTO_UDP, CLIENT_PLAYING_STATE,
                    {{"OPTIONS ", Ok()},
                     {"DESCRIBE ", WithBody(kDescription)},
                     {"SETUP ", SetupReply(3, DATA_PROTO_TCP, 0)},
                     {"PLAY ", Ok()}});
    const std::size_t overUdp = CountThreads();
    EXPECT_EQ(session.Options(), 0);
    EXPECT_EQ(RTSPClientConnect(session.client, "127.0.0.1", session.server.Port(), "live", DATA_PROTO_TCP, 0), 0);
    EXPECT_EQ(session.Describe(), 0);
    EXPECT_EQ(session.Setup(3), 0); // the streams of the new description come behind the old
    EXPECT_EQ(session.Play(), 0);
    EXPECT_TRUE(Eventually([&] { return CountThreads() == overUdp - 4 + 1; }));
}

TEST(Interleaved, RepliesNobodyAskedForAreDropped) {
    Session session(DATA_PROTO_TCP, CLIENT_PLAYING_STATE, {{"PAUSE ", Ok("Session: {session}")}});
    for (uint16_t i = 1; i <= 3; ++i) {
        session.server.Send("RTSP/1.0 500 Late\r\nCSeq: 3\r\n\r\n");
        WaitMs(20);
    }
    session.server.Send(Frames(1, 1));
    EXPECT_EQ(TakeSequenceNumbers(session.client, kVideo, 1), Numbers(1, 1));
    EXPECT_EQ(session.Pause(), 0);
}

TEST(Interleaved, RepeatedPlayLosesNoByteAndCostsNothing) {
    constexpr uint16_t kTimes = 300;
    Script script;
    for (uint16_t i = 1; i <= kTimes; ++i) {
        const std::string frame = Frames(i, i);
        const std::size_t cut = i % frame.size(); // the thread changes anywhere inside a frame
        script.push_back(
            {"PLAY {base} ", Ok() + SendBytes(frame.substr(0, cut)) + Delay(i % 3) + SendBytes(frame.substr(cut))});
    }
    Session session(DATA_PROTO_TCP, CLIENT_PLAYING_STATE, script);
    const std::size_t threads = CountThreads();
    const std::size_t descriptors = CountDescriptors();
    for (uint16_t i = 1; i <= kTimes; ++i) EXPECT_EQ(session.Play(), 0);
    EXPECT_EQ(TakeSequenceNumbers(session.client, kVideo, kTimes), Numbers(1, kTimes));
    EXPECT_TRUE(Eventually([&] { return CountThreads() == threads && CountDescriptors() == descriptors; }));
}

TEST(Interleaved, FramingErrorsAreReportedAndRecoveredFrom) {
    const std::string words6(24, 'A'); // six times four bytes that are neither a frame nor a reply
    const struct {
        const char *name;
        std::string bytes;
        std::string line; // printed once
        std::size_t corrupted;
    } kCases[] = {
        {"no frame", "ABCD", "", 1},
        {"unknown channel", Frame(9, words6), "", 6},
        {"longer than the MTU", Frame(0, std::string(204, 'A')),
         "Error: interleaved frame in RTP stream is too large (204)\n", 51},
        {"unknown channel, empty", Frame(9, ""), "", 0},
        {"not RTP", Frame(0, words6), "", 0},
        {"empty", Frame(0, ""), "", 0},
        {"RTCP, empty", Frame(1, ""), "", 0},
        {"RTCP of no kind", Frame(1, words6), "", 0},
    };
    Session session(DATA_PROTO_TCP, CLIENT_PLAYING_STATE);
    EXPECT_EQ(RTSPClientSetMTUSize(session.client, 200), 0);
    uint16_t number = 0;
    for (const auto &row : kCases) {
        CapturedStdout out;
        ++number;
        session.server.Send(row.bytes + Frames(number, number));
        EXPECT_EQ(TakeSequenceNumbers(session.client, kVideo, 1), Numbers(number, number)) << row.name;
        EXPECT_EQ(CountOf(out.Text(), kCorrupted), row.corrupted) << row.name;
        EXPECT_TRUE(row.line.empty() || CountOf(out.Text(), row.line) == 1) << row.name;
    }
}

TEST(Interleaved, FullBufferRefusesFramesUntilSpaceIsGivenBack) {
    Session session(DATA_PROTO_TCP, CLIENT_PLAYING_STATE, {}, 1000); // below the MTU: one packet at a time
    session.server.Send(Frames(1, 1));
    RTPStreamData *held = TakePacket(session.client, kVideo);
    ASSERT_NE(held, nullptr);
    CapturedStdout out;
    session.server.Send(Frames(2, 2) + Frames(3, 3, 2)); // the second goes to the other stream's buffer
    EXPECT_EQ(TakeSequenceNumbers(session.client, kAudio, 1), Numbers(3, 3));
    EXPECT_EQ(CountOf(out.Text(), "Data full reset to 0 location, 1000, 20, 0   stream:0\n"), 1U);
    EXPECT_EQ(CountOf(out.Text(), kCorrupted), 5U); // its body of 20 bytes
    EXPECT_EQ(RTPClientFreeRTPStreamData(session.client, held, kVideo), 0);
    session.server.Send(Frame(0, std::string(1200, 'A')) + Frames(4, 4)); // never fits
    EXPECT_EQ(TakeSequenceNumbers(session.client, kVideo, 1), Numbers(4, 4));
}

TEST(Interleaved, ServerMayCloseAnywhere) {
    const std::string bytes = Frames(1, 1) + "RTSP/1.0 200 OK\r\nSession: 12345678\r\n\r\n" + Frames(2, 2);
    for (std::size_t cut = 0; cut <= bytes.size(); cut += 3) {
        for (const bool reset : {false, true}) {
            Session session(DATA_PROTO_TCP, CLIENT_PLAYING_STATE);
            const std::size_t threads = CountThreads();
            session.server.Send(bytes.substr(0, cut));
            session.server.Hangup(reset);
            EXPECT_TRUE(Eventually([&] { return CountThreads() == threads - 1; })) << cut;
            // What had arrived is still there; a reset throws away what was not read yet.
            const std::size_t whole = cut >= Frames(1, 1).size() && !reset ? 1 : 0;
            EXPECT_EQ(TakeSequenceNumbers(session.client, kVideo, whole).size(), whole);
            EXPECT_LT(SecondsOf([&] { EXPECT_EQ(session.client.Destroy(), 0); }), 2);
        }
    }
}

TEST(Interleaved, ReceiverReportsGoIntoFramesOfTheSameConnection) {
    Session session(DATA_PROTO_TCP, CLIENT_PLAYING_STATE);
    CapturedStdout out;
    session.server.Send(Frame(2, Rtp(40000)) + Frame(3, RtcpPacket(201, {1})) + Frame(1, RtcpPacket(202, {1})) +
                        Frame(3, Bytes(SenderReport{.ntpMsw = 1, .ntpLsw = 0x80000000})) +
                        Frame(1, RtcpPacket(203, {1})));
    const std::vector<std::string> frames = session.server.WaitForFrames(3);
    ASSERT_EQ(frames.size(), 3U); // none for the description of the source
    EXPECT_EQ(frames[0].substr(0, 2), "$\x03");
    EXPECT_EQ(Word16(frames[0], 2), frames[0].size() - 4);
    EXPECT_EQ(Word32(frames[0], 4), 0x81C90007U);
    EXPECT_EQ(Word32(frames[0], 12), 0x11223344U);
    EXPECT_EQ(Word32(frames[0], 20), 40000U);
    EXPECT_EQ(Word32(frames[0], 32), 0U);
    EXPECT_EQ(Word32(frames[1], 28), 0x18000U);
    EXPECT_EQ(Word32(frames[1], 32), 1U);
    EXPECT_EQ(frames[2].substr(0, 2), "$\x01");
    EXPECT_NE(out.Text().find("Received RTCP Bye packet\n"), std::string::npos);
}

TEST(Interleaved, PacketsHeldAcrossTeardownStayTheApplications) {
    Session session(DATA_PROTO_TCP, CLIENT_PLAYING_STATE, {{"TEARDOWN ", Ok()}});
    session.server.Send(Frames(1, 5));
    RTPStreamData *held = TakePacket(session.client, kVideo);
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(session.Teardown(), 0);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(held->payload), held->payloadLength), "payload!");
    RTPStreamData *none = nullptr;
    EXPECT_EQ(RTPClientGetRTPStreamData(session.client, &none, kVideo), 0); // the description is no longer in force
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(RTPClientFreeRTPStreamData(session.client, held, kVideo), 0);
}
