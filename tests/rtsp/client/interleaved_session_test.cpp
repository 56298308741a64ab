// Sessions whose media, receiver reports and replies share the RTSP connection.
#include "tests/support/session.h"

#include <random>

using namespace rtsptap::test;

namespace {

constexpr char kCorrupted[] = "Error: corrupted stream ($/RTSP not found)\n";

// Media that is hard to tell from frames and replies, in frames of random sizes.
std::string Thicket(std::mt19937 &random, bool dense, unsigned channels) {
    const auto below = [&](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    const auto header = [&] { return Frame(below(4), std::string(below(33000), 'x')).substr(0, 4); };
    const std::string starts[] = {header(), header(), "R", "RT", "RTS", "$"};
    std::string bytes;
    for (int frame = 0; frame < 60; ++frame) {
        std::string body;
        for (const unsigned size = 1 + below(1500); body.size() < size;)
            body += dense ? starts[below(6)] : std::string(1, static_cast<char>(below(256)));
        bytes += Frame(2 * below(channels), Rtp(static_cast<uint16_t>(frame), body));
    }
    return bytes;
}

// What PLAY gave the caller, or the result as a text.
std::string PlayReply(Session &session) {
    std::string buffer(256, '\0');
    auto size = static_cast<int32_t>(buffer.size());
    const int32_t result = RTSPClientSendPlayRequest(session, 0, 0, buffer.data(), &size);
    return result == 0 ? buffer.substr(0, static_cast<std::size_t>(size)) : std::to_string(result);
}

} // namespace

// The first reply ends where its frames begin, however its lines end and wherever the segments do.
TEST(Interleaved, RepliesAmongFramesMaySplitAnywhere) {
    const std::string good = "RTSP/1.0 200 OK\r\nSession: 12345678\r\n\r\n";
    for (const auto &row : Rows("first_replies.txt")) {
        const std::string reply = Lines(row[0]);
        const bool isCut = row.at(1) == "cut";
        const std::string bytes = Frames(1, 2) + reply + Frames(3, 5);
        const std::size_t stride = !isCut ? bytes.size() : LongForm() || reply == good ? 1 : 7;
        for (std::size_t cut = isCut ? 1 : 0; cut < bytes.size(); cut += stride) {
            Session session(kTcp, CLIENT_READY_STATE, {{"PLAY ", Pieces(bytes, cut, 2)}});
            EXPECT_EQ(PlayReply(session), reply) << cut;
            EXPECT_EQ(session.Video(5), Numbers(1, 5)) << reply << cut;
        }
    }
    const std::string bytes = Frames(1, 2) + good + Frames(3, 5);
    Script repeated;
    for (std::size_t cut = 1; cut <= bytes.size(); ++cut) repeated.push_back({"PLAY ", Pieces(bytes, cut, 2)});
    Session session(kTcp, CLIENT_PLAYING_STATE, repeated);
    for (std::size_t cut = 1; cut <= bytes.size(); ++cut) {
        EXPECT_EQ(PlayReply(session), good) << cut;
        EXPECT_EQ(session.Video(5), Numbers(1, 5)) << cut;
    }
    // One that never ends is taken as far as it came.
    for (const auto state : {CLIENT_READY_STATE, CLIENT_PLAYING_STATE}) {
        Session unfinished(kTcp, state, {{"PLAY ", SendBytes("RTSP/1.0 200 OK\r\nSess")}});
        EXPECT_TRUE(SucceedsSoon([&] { return unfinished.Play(); }));
    }
}

TEST(Interleaved, TextFromBeforeTheRequestIsNotItsReply) {
    const std::string good = "RTSP/1.0 200 OK\r\nSession: 12345678\r\n\r\n";
    Session session(
        kTcp, CLIENT_READY_STATE,
        {{"PLAY ", SendBytes("RTSP/1.0 455 No\r\n\r\n" + Frames(1, 1) + "RTSP/1.0 500 No\r\n\r\n" + Frames(2, 2))},
         {"PLAY ", SendBytes(Frames(3, 3) + good + Frames(4, 4))}});
    EXPECT_EQ(session.Play(), RTSP_CLIENT_ERROR);
    EXPECT_EQ(PlayReply(session), good);
    EXPECT_EQ(session.Video(4), Numbers(1, 4));
}

TEST(Interleaved, ASignalEndsTheWaitForTheFirstReply) {
    Session session(kTcp, CLIENT_READY_STATE, {{"PLAY ", Stall()}});
    CapturedStdout out;
    {
        const std::jthread signals = Interruptions();
        EXPECT_EQ(session.Play(), RTSP_NO_RESPONSE);
    }
    EXPECT_EQ(CountOf(out.Text(), "\tEXIT : ClientReadMessage :Socket select call failed\n"), 1U);
}

TEST(Interleaved, PauseAndResumeWithMediaFlowingLoseNothing) {
    Session session(kTcp, CLIENT_PLAYING_STATE,
                    {{"PAUSE ", SendBytes(Frames(1, 3)) + Ok() + Delay(20) + SendBytes(Frames(4, 6)) + Delay(20) +
                                    SendBytes(Frames(7, 9))}, // the thread still reads the first of these
                     {"PLAY ", SendBytes(Frames(10, 12)) + Ok() + SendBytes(Frames(13, 13))},
                     {"PAUSE ", Ok() + Delay(30) + SendBytes(Frames(14, 20))},
                     {"TEARDOWN ", Ok()}});
    EXPECT_EQ(session.Pause(), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(70));
    EXPECT_EQ(session.Play(), 0);
    EXPECT_EQ(session.Video(13), Numbers(1, 13));
    EXPECT_EQ(session.Pause(), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_TRUE(SucceedsSoon([&] { return session.Teardown(); })); // its reply lies behind frames not yet read
}

TEST(Interleaved, ProgramsThatDoNotReadStillPauseAndTearDown) {
    for (unsigned seed = 0; seed < (LongForm() ? 400U : 40U); ++seed) {
        std::mt19937 random(seed);
        const unsigned channels = 1 + seed / 2 % 2; // whether both rings fill
        const auto thicket = [&] { return SendBytes(Thicket(random, seed % 2 == 0, channels)); };
        CapturedStdout out;
        Session session(kTcp, CLIENT_PLAYING_STATE,
                        {{"PAUSE ", thicket() + Ok()},
                         {"PLAY ", thicket() + Ok() + thicket() + Delay(1) + thicket()},
                         {"TEARDOWN ", thicket() + Ok()}},
                        40000);
        EXPECT_TRUE(SucceedsSoon([&] { return session.Pause(); })) << seed;
        EXPECT_TRUE(SucceedsSoon([&] { return session.Play(); })) << seed;
        EXPECT_TRUE(SucceedsSoon([&] { return session.Teardown(); })) << seed;
    }
}

TEST(Interleaved, OneStreamOfTwoKeepsTheConnectionServed) {
    Session session(kTcp, CLIENT_DESCRIBE_SENT_STATE,
                    {{"SETUP {base}/track1 ", Ok("Transport: RTP/AVP/TCP;unicast;interleaved=4-5")},
                     {"SETUP {base}/track2 ", Ok()},
                     {"PLAY {base} ", Ok()},
                     {"PAUSE {base}/track1 ", Ok()},
                     {"PAUSE {base}/track2 ", Ok()}});
    session.Setup(1);
    session.Setup(2);
    EXPECT_EQ(session.Play(), 0);
    session.server.Send(Frame(4, Rtp(5)) + Frame(2, Rtp(100)) + Frame(4, Rtp(3)));
    EXPECT_EQ(session.Video(2), (std::vector<uint16_t>{5, 3})); // not reordered
    EXPECT_EQ(session.Pause(1), 0);
    EXPECT_EQ(StateOf(session), CLIENT_PLAYING_STATE);
    session.server.Send(Frames(101, 102, 2));
    EXPECT_EQ(session.Audio(3), Numbers(100, 102));
    EXPECT_EQ(session.Pause(2), 0);
    EXPECT_EQ(StateOf(session), CLIENT_PAUSE_STATE);
}

TEST(Interleaved, AReaderThatWaitsServesEverybodyElse) {
    Session session(kTcp, CLIENT_PLAYING_STATE, {{"PLAY ", Ok()}, {"PAUSE {base}/track2 ", Ok()}});
    std::vector<uint16_t> taken;
    std::thread reader([&] { taken = session.Video(1); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // until it waits in the connection
    session.server.Send(Frames(1, 2, 2));
    EXPECT_EQ(session.Audio(2), Numbers(1, 2));
    EXPECT_TRUE(SucceedsSoon([&] { return session.Play(); })); // and the next thread takes over
    EXPECT_TRUE(SucceedsSoon([&] { return session.Pause(2); }));
    session.server.Send(Frames(7, 7));
    reader.join();
    EXPECT_EQ(taken, Numbers(7, 7));
}

TEST(Interleaved, OptionsWhilePlayingIsAnsweredThroughTheReceiveThread) {
    Session session(kTcp, CLIENT_PLAYING_STATE,
                    {{"OPTIONS ", Ok() + SendBytes(Frames(2, 2))}, {"DESCRIBE ", WithBody(kDescription)}});
    session.server.Send(Frames(1, 1));
    EXPECT_EQ(session.Options(), 0);
    EXPECT_EQ(session.Pause(), RTSP_INVALID_STATE);
    EXPECT_EQ(session.Describe(), 0); // allowed again; its streams follow those that play
    EXPECT_EQ(RTSPClientGetNbStreams(session), 4);
    session.server.Send(Frames(3, 3));
    EXPECT_EQ(session.Video(3), Numbers(1, 3));
}

TEST(Interleaved, ConnectingAgainLeavesNothingOfTheOldConnection) {
    const std::string partial = Frames(9, 9).substr(0, 9);
    Session session(kTcp, CLIENT_PLAYING_STATE,
                    Script{{"TEARDOWN ", Ok() + SendBytes(partial)}} + StepsTo(CLIENT_PLAYING_STATE, kTcp) +
                        Script{{"PAUSE ", Ok()}});
    EXPECT_EQ(session.Teardown(), 0);
    session.Reach(CLIENT_PLAYING_STATE);
    session.server.Send(Frames(1, 1) + partial);
    EXPECT_EQ(session.Video(1), Numbers(1, 1));
    EXPECT_EQ(session.Connect(), 0); // while playing: the thread goes on with the new connection
    EXPECT_TRUE(SucceedsSoon([&] { return session.Pause(); }));
}

TEST(Interleaved, FramingErrorsAreReportedAndRecoveredFrom) {
    Session session(kTcp, CLIENT_PLAYING_STATE);
    EXPECT_EQ(RTSPClientSetMTUSize(session, 200), 0);
    for (const auto &row : Rows("framing_errors.txt")) {
        CapturedStdout out;
        session.server.Send(row.at(1) + Frames(7, 7));
        EXPECT_EQ(session.Video(1), Numbers(7, 7)) << row[0];
        EXPECT_EQ(std::to_string(CountOf(out.Text(), kCorrupted)), row.at(2)) << row[0];
    }
    // What a reply may begin with, at the end of a read, is no reply until more has come.
    for (const char *word : {"AAAR", "AART", "ARTS"}) {
        Session paused(kTcp, CLIENT_PLAYING_STATE,
                       {{"PAUSE ", SendBytes(Frame(9, word)) + Delay(20) + SendBytes(Frames(1, 2)) + Ok()}});
        EXPECT_EQ(paused.Pause(), 0);
        EXPECT_EQ(paused.Video(2), Numbers(1, 2)) << word;
    }
    // The first reply to PLAY is found behind frames that nobody takes, whatever their size.
    for (const std::size_t size : {0U, 1U, 50U, 51U}) {
        Session early(kTcp, CLIENT_READY_STATE, {{"PLAY ", SendBytes(Frame(9, std::string(size, 'A'))) + Ok()}});
        EXPECT_TRUE(SucceedsSoon([&] { return early.Play(); })) << size;
    }
}

TEST(Interleaved, FullBufferRefusesFramesUntilSpaceIsGivenBack) {
    Session session(kTcp, CLIENT_PLAYING_STATE, {}, 1000); // below the MTU: one packet at a time
    session.server.Send(Frames(1, 1));
    RTPStreamData *held = TakePacket(session, kVideo);
    ASSERT_NE(held, nullptr);
    CapturedStdout out;
    session.server.Send(Frame(0, "") + Frames(2, 2) +
                        Frames(3, 3, 2)); // the last goes to the other stream's buffer
    EXPECT_EQ(session.Audio(1), Numbers(3, 3));
    EXPECT_EQ(CountOf(out.Text(), "Data full reset to 0 location, 1000, 20, 0   stream:0\n"), 2U);
    EXPECT_EQ(CountOf(out.Text(), "Invalid packet"), 0U);
    EXPECT_EQ(CountOf(out.Text(), kCorrupted), 5U); // its body of 20 bytes
    EXPECT_EQ(RTPClientFreeRTPStreamData(session, held, kVideo), 0);
    session.server.Send(Frame(0, std::string(1200, 'A')) + Frames(4, 4)); // the first can never fit
    EXPECT_EQ(session.Video(1), Numbers(4, 4));
}

// How the bytes are read and where they stay does not count.
TEST(Interleaved, LargeBufferHoldsWhatItsSizeSays) {
    Session session(kTcp, CLIENT_PLAYING_STATE, {}, 33000 + 80 * 1000);
    const auto send = [&](uint16_t first, uint16_t last) {
        std::string frames;
        for (uint16_t number = first; number <= last; ++number)
            frames += Frame(0, Rtp(number, std::string(988, 'A')));
        session.server.Send(frames + Frames(last, last, 2));
        EXPECT_EQ(session.Audio(1), Numbers(last, last));
    };
    CapturedStdout out;
    send(1, 81);
    EXPECT_EQ(CountOf(out.Text(), "Data full reset to 0 location, 113000, 80000, 0   stream:0\n"), 1U);
    EXPECT_EQ(session.Video(40), Numbers(1, 40));
    send(81, 82);
    EXPECT_EQ(CountOf(out.Text(), "TCP read buffer reset wr (2) rd:40000  wr:80000 stream:0\n"), 1U);
    EXPECT_EQ(session.Video(42), Numbers(41, 82));
}

TEST(Interleaved, ReceiverReportsGoIntoFramesOfTheSameConnection) {
    Session session(kTcp, CLIENT_PLAYING_STATE);
    session.server.Send(Frame(2, Rtp(40000)) + Frame(3, SenderReport(1, 0x80000000)) +
                        Frame(1, RtcpPacket(202, {1})) + Frame(1, RtcpPacket(203, {1})));
    const std::vector<std::string> frames = session.server.WaitForFrames(2);
    ASSERT_EQ(frames.size(), 2U); // none for the description of the source
    EXPECT_EQ(frames[0].substr(0, 2), "$\x03");
    EXPECT_EQ(Word16(frames[0], 2), frames[0].size() - 4);
    EXPECT_EQ(Word32(frames[0], 20), 40000U);
    EXPECT_EQ(Word32(frames[0], 28), 0x18000U); // of the sender report
    EXPECT_EQ(frames[1].substr(0, 2), "$\x01");
}
