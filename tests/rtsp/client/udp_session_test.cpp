// Sessions over UDP from PLAY on: threads, media, pause, teardown, receiver reports; limits of time over both.
#include "rtp/stream.h"
#include "rtsp/client/stream_sockets.h"
#include "tests/support/session.h"

namespace rtsptap::test {
namespace {

TEST(UdpSession, PlayStartsAThreadForEachStreamThatIsNotPaused) {
    Session session(kUdp, CLIENT_READY_STATE,
                    {{"PLAY {base}/track2 ", Status(202, "Accepted")},
                     {"PLAY {base}/track2 ", Ok()},
                     {"PAUSE {base}/track2 ", Ok()},
                     {"PLAY {base} ", Ok()},
                     {"PLAY {base} ", Ok("Session: {session}")},
                     {"TEARDOWN ", Ok()}});
    const std::size_t before = CountThreads();
    EXPECT_EQ(session.Play(2), 0); // Kept: a code below 300 other than 200 succeeds and starts nothing
    EXPECT_EQ(CountThreads(), before);
    EXPECT_EQ(session.Play(2), 0);
    EXPECT_EQ(CountThreads(), before + 2); // the stream's, and the one that watches for readers
    EXPECT_EQ(session.Pause(2), 0);
    for (int i = 0; i < 2; ++i) { // what runs already is not started twice
        EXPECT_EQ(session.Play(), 0);
        EXPECT_TRUE(Eventually([&] { return CountThreads() == before + 3; }));
    }
    EXPECT_TRUE(SucceedsSoon([&] { return session.Teardown(); }));
}

TEST(UdpSession, PausedStreamLosesNothingThatArrived) {
    Session session(kUdp, CLIENT_PLAYING_STATE, {{"PAUSE {base}/track1 ", Ok()}, {"PLAY ", Ok()}});
    session.SendNumbers(1, Numbers(1, 3));
    EXPECT_EQ(session.Pause(1), 0);
    session.SendNumbers(1, Numbers(4, 9));
    session.SendNumbers(2, Numbers(1, 2));
    EXPECT_EQ(session.Audio(2), Numbers(1, 2));                 // the other stream plays on
    EXPECT_LE(RTPClientGetNbOfPktInBuffer(session, kVideo), 4); // a receive under way may end with one more
    std::this_thread::sleep_for(std::chrono::milliseconds(30)); // for the paused thread to look
    EXPECT_EQ(session.Play(), 0);
    EXPECT_EQ(session.Video(9), Numbers(1, 9));
}

TEST(UdpSession, TeardownEndsAllButTheHeldPacketsWhichAreFreedWhileTheNextOneStarts) {
    const Script teardown{{"TEARDOWN ", Ok()}};
    Session session(kUdp, CLIENT_PLAYING_STATE, teardown + StepsTo(CLIENT_PLAYING_STATE, kUdp) + teardown);
    session.SendNumbers(1, Numbers(1, 40));
    session.SendNumbers(2, Numbers(1, 2));
    std::vector<RTPStreamData *> held;
    for (int i = 0; i < 20; ++i) held.push_back(TakePacket(session, kVideo));
    RTPStreamData *shown = nullptr;
    while (RTPClientPeekRTPStreamData(session, &shown, kAudio) != 0) {
    }
    EXPECT_EQ(session.Teardown(), 0);
    EXPECT_TRUE(session.server.WaitForClose());
    const std::size_t ended = CountDescriptors();
    EXPECT_EQ(session.Play(1), RTSP_NOT_CONNECTED);
    EXPECT_EQ(session.Pause(1), RTSP_INVALID_ARGUMENT); // of no stream
    EXPECT_EQ(session.Teardown(), RTSP_NOT_CONNECTED);
    // What is held or was shown keeps its ring and its pool, nothing else is kept.
    const RTSPStreamInfo &video = *RecordOf(session).media.retiredStreams.load();
    const RTSPStreamInfo &audio = *video.next.load();
    EXPECT_EQ(shown->packetData, audio.ring.storage);
    EXPECT_EQ(PayloadOf(*shown), PayloadOf(*held.front()));
    session.Reach(CLIENT_READY_STATE);
    std::thread reader([&] {
        for (RTPStreamData *packet : held) EXPECT_EQ(RTPClientFreeRTPStreamData(session, packet, kVideo), 0);
    });
    EXPECT_EQ(session.Play(), 0);
    reader.join();
    session.SendNumbers(1, Numbers(30, 32));
    EXPECT_EQ(session.Video(3), Numbers(30, 32));
    EXPECT_EQ(session.Teardown(), 0);
    EXPECT_TRUE(Eventually([&] { return CountDescriptors() == ended; }));
    for (const RTSPStreamInfo *stream :
         {&video, &audio, static_cast<const RTSPStreamInfo *>(RecordOf(session).media.retiredStreams.load())})
        EXPECT_TRUE(stream->ring.storage == nullptr && stream->pool.stillOut == 0);
}

// In batches with places of the size last seen: longer ones spill over, and are joined.
TEST(UdpSession, DatagramsThatCameTogetherAreEachWhole) {
    Session session(kUdp, CLIENT_PLAYING_STATE, {{"PAUSE {base}/track1 ", Ok()}, {"PLAY ", Ok()}}, 1 << 20);
    session.SendNumbers(1, Numbers(1, 1));
    EXPECT_EQ(session.Video(1), Numbers(1, 1));
    EXPECT_EQ(session.Pause(1), 0);
    usleep(50000); // the thread has seen it, or it receives what follows one by one
    const auto payload = [](int number) {
        constexpr std::size_t kSizes[] = {20, 1200, 1200, 3000, 8, 30000, 1, 1400};
        return std::string(kSizes[number % 8], static_cast<char>('A' + number % 23));
    };
    for (uint16_t number = 2; number <= 40; ++number) session.SendRtp(1, Rtp(number, payload(number)));
    EXPECT_EQ(session.Play(1), 0);
    for (uint16_t number = 2; number <= 40; ++number) {
        RTPStreamData *const packet = TakePacket(session, kVideo);
        ASSERT_NE(packet, nullptr);
        EXPECT_EQ(packet->rtpHeader->sequenceNumber, number);
        EXPECT_TRUE(PayloadOf(*packet) == payload(number)) << number;
        EXPECT_EQ(RTPClientFreeRTPStreamData(session, packet, kVideo), 0);
    }
}

TEST(UdpSession, EmptyDatagramEndsReceptionAndPlayStartsItAgain) {
    Session session(kUdp, CLIENT_PLAYING_STATE, {{"PLAY ", Ok()}, {"TEARDOWN ", Ok()}});
    session.SendNumbers(1, Numbers(1, 2));
    session.SendRtp(1, "");
    EXPECT_EQ(session.Video(2), Numbers(1, 2));
    RTPStreamData *packet = nullptr;
    EXPECT_EQ(RTPClientGetRTPStreamData(session, &packet, kVideo), -1); // at once, or nothing came for 5 s
    session.SendNumbers(1, Numbers(3, 4));
    EXPECT_EQ(session.Play(), 0);
    EXPECT_EQ(session.Video(2), Numbers(3, 4));
    session.SendRtp(1, "");
    EXPECT_EQ(session.Teardown(), 0);
    EXPECT_EQ(session.rtcp[0].Receive(0), ""); // a thread that is told to stop sends nothing more
}

TEST(UdpSession, EmptyDatagramsArePassedOverWhereTheRuleIsOn) {
    Session session(kUdp, CLIENT_PLAYING_STATE, {{"TEARDOWN ", Ok()}});
    Dialect &dialect = RecordOf(session).media.dialect;
    dialect.Set(Rule::kEmptyDatagram, true);
    session.ArriveRtcp(1, "");
    for (const uint16_t number : Numbers(1, 8))
        for (const std::string &datagram : {std::string(), Rtp(number)}) session.SendRtp(1, datagram);
    EXPECT_EQ(session.Video(8), Numbers(1, 8));
    EXPECT_TRUE(Eventually([&] { return dialect.Uses(Rule::kEmptyDatagram) == 9; }));
    EXPECT_EQ(session.Teardown(), 0); // its sockets are read as empty from then on
    EXPECT_EQ(dialect.Uses(Rule::kEmptyDatagram), 9U);
}

TEST(UdpSession, PlayWithoutDescriptorsTellsWhyNothingComes) {
    Session session(kUdp, CLIENT_READY_STATE, Times(3, {"PLAY ", Ok()}));
    for (const rlim_t spare : {0, 1}) {
        CapturedStdout out;
        const DescriptorLimit limit(spare);
        EXPECT_EQ(session.Play(), 0);
        EXPECT_EQ(CountOf(out.Text(), "can not be started: Too many open files\n"), 2U) << spare;
    }
    EXPECT_EQ(session.Play(), 0);
    session.SendNumbers(1, Numbers(1, 3));
    EXPECT_EQ(session.Video(3), Numbers(1, 3));
}

TEST(UdpSession, FullBufferHoldsPacketsBackAndLosesNone) {
    for (const int32_t ringBytes : {64, 40000}) { // below the largest packet there is room for one at a time
        Session session(kUdp, CLIENT_PLAYING_STATE, {{"TEARDOWN ", Ok()}}, ringBytes);
        for (const uint16_t number : Numbers(1, 60))
            session.SendRtp(1, Rtp(number, std::string(ringBytes == 64 ? 20 : 1000, 'x')));
        EXPECT_EQ(session.Video(40), Numbers(1, 40));
        RTPStreamData *held = TakePacket(session, kVideo);
        ASSERT_NE(held, nullptr);
        EXPECT_TRUE(SucceedsSoon([&] { return session.Teardown(); })); // with the buffer full
        EXPECT_EQ(PayloadOf(*held).back(), 'x');                       // still the application's
        EXPECT_EQ(RTPClientFreeRTPStreamData(session, held, kVideo), 0);
    }
}

TEST(UdpSession, RefusedPacketsAloneDoNotBlockTheBuffer) {
    Session session(kUdp, CLIENT_PLAYING_STATE, {}, 1000);
    for (int i = 0; i < 50; ++i)
        session.SendRtp(1, Bytes(RtpPacket{.version = 1, .payload = std::string(200, 'x')}));
    session.SendNumbers(1, Numbers(77, 77));
    EXPECT_EQ(session.Video(1), Numbers(77, 77));
}

struct Shown {
    std::string texts[2];
    std::atomic<std::size_t> count = 0;
};

void Show(void *context, int32_t stream, int32_t isSent, const uint8_t *packet, uint32_t length) {
    auto &[texts, count] = *static_cast<Shown *>(context);
    texts[count % 2] = std::to_string(stream) + (isSent == 1 ? ">" : "<");
    texts[count % 2].append(reinterpret_cast<const char *>(packet), length);
    ++count; // last: whoever waits for it then looks at the text
}

TEST(RtcpCallback, IsShownWhatCameAndWhatWasSentOverBothTransports) {
    for (const uint32_t proto : {kUdp, kTcp}) {
        Shown shown;
        Session session(proto, CLIENT_PLAYING_STATE, {}, 1 << 20, [&](intptr_t client) {
            EXPECT_EQ(RTSPTapSetRtcpCallback(client, Show, &shown), RTSP_SUCCESS);
        });
        EXPECT_EQ(RTSPTapSetRtcpCallback(session, nullptr, nullptr), RTSP_FAILURE);
        const std::string report = SenderReport(1);
        session.ArriveRtcp(2, report);
        EXPECT_TRUE(Eventually([&] { return shown.count == 2; }));
        EXPECT_EQ(shown.texts[0], "2<" + report);
        EXPECT_EQ(shown.texts[1], "2>" + (proto == kUdp ? session.rtcp[1].Receive()
                                                        : session.server.WaitForFrames(1).at(0).substr(4)));
    }
}

TEST(Printers, OfTheProgramGetEachMessageWithItsClientInPlaceOfStandardOutput) {
    CapturedStdout out;
    for (const uint32_t proto : {kUdp, kTcp}) {
        Printed ofAll;
        Printed ofOne;
        ASSERT_EQ(RTSPTapSetPrinter(0, PrintTo, &ofAll), 0);
        EXPECT_EQ(RTSPTapSetPrinter(1, PrintTo, &ofAll), RTSP_INVALID_ARGUMENT);
        EXPECT_EQ(ofAll.Count("EXIT : RTSPTapSetPrinter :Invalid client handle", 0, RTSPTAP_PRINT_ERROR), 1U);
        Session other(proto, CLIENT_PLAYING_STATE);
        intptr_t handle = 0;
        {
            Session session(proto, CLIENT_PLAYING_STATE);
            handle = session;
            ASSERT_EQ(RTSPTapSetPrinter(session, PrintTo, &ofOne), 0);
            for (Session *each : {&session, &other}) {
                for (const uint16_t number : Numbers(1, 9))
                    each->Arrive(1, Bytes(RtpPacket{.version = 1, .sequenceNumber = number}));
                each->Arrive(1, Rtp(7, "y"));
                EXPECT_EQ(each->Video(1), Numbers(7, 7));
            }
        }
        const std::string refused = "Invalid packet received ignoring"; // by the thread, and by the reader
        EXPECT_EQ(ofOne.Count(refused, handle, RTSPTAP_PRINT_ERROR), 9U);
        EXPECT_EQ(ofAll.Count(refused, other), 9U);
        EXPECT_EQ(ofOne.Count("Client Destroyed Successfully", handle, RTSPTAP_PRINT_INFO), 1U);
        EXPECT_EQ(ofOne.Count("", other), 0U);
        EXPECT_EQ(RTSPTapSetPrinter(0, nullptr, nullptr), 0); // while streams of `other` still play
    }
    EXPECT_EQ(out.Text(), "!!!INFO!!! : \tClient Destroyed Successfully .... \n"
                          "!!!INFO!!! : \tClient Destroyed Successfully .... \n");
}

// What takes 5 or 25 seconds, all of it at once.
// Never less; a busy machine may take some more.
void ExpectAbout(double limit, const std::function<void()> &action) {
    const double seconds = SecondsOf(action);
    EXPECT_GT(seconds, limit - 0.5);
    EXPECT_LT(seconds, limit + 4);
}

void ReadOfAReply() {
    Session session(kUdp, CLIENT_READY_STATE, {{"PLAY ", Stall()}, {"PLAY ", Ok()}});
    ExpectAbout(25, [&] { EXPECT_EQ(session.Play(), RTSP_RESPONSE_TIMEOUT); });
    EXPECT_EQ(session.Play(), 0);
}

// The reply that comes too late is not taken for the next one.
void WaitForAReplyAmongFrames() {
    Session session(kTcp, CLIENT_PLAYING_STATE, {{"PAUSE ", Stall()}, {"PAUSE ", Ok()}, {"TEARDOWN ", Ok()}});
    ExpectAbout(25, [&] { EXPECT_EQ(session.Pause(), RTSP_RESPONSE_TIMEOUT); });
    session.server.Send("RTSP/1.0 500 Late\r\n\r\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    session.server.Send(Frame(0, Rtp(1)));
    EXPECT_EQ(session.Video(1), Numbers(1, 1));
    EXPECT_EQ(session.Pause() + session.Teardown(), 0);
}

// PLAY in between, which keeps a session alive, does not begin the silence anew.
void ReportAfterSilence() {
    Session session(kUdp, CLIENT_PLAYING_STATE, Times(2, {"PLAY ", Ok()}));
    ExpectAbout(25, [&] {
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(session.rtcp[0].Receive(9000), "");
            EXPECT_EQ(session.Play(), 0);
        }
        EXPECT_GE(session.rtcp[0].Receive(30000).size(), 32U);
    });
    EXPECT_FALSE(session.rtcp[1].Receive(1000).empty());
}

// Signals make the wait no longer, and no line is printed for them.
void WaitForAPacketAmongSignals() {
    for (const uint32_t proto : {kUdp, kTcp}) {
        // Before they come: an exchange fails when it is interrupted.
        const Session session(proto, CLIENT_PLAYING_STATE);
        const std::jthread signals = Interruptions();
        RTPStreamData *packet = nullptr;
        ExpectAbout(5, [&] { EXPECT_EQ(RTPClientGetRTPStreamData(session, &packet, kVideo), -1); });
    }
}

TEST(TimeLimits, EndAfter5Or25Seconds) {
    CapturedStdout out;
    std::vector<std::thread> threads;
    for (const auto body : {ReadOfAReply, WaitForAReplyAmongFrames, ReportAfterSilence, WaitForAPacketAmongSignals})
        threads.emplace_back(body);
    for (std::thread &thread : threads) thread.join();
    EXPECT_EQ(CountOf(out.Text(), "recv function error"), 0U);
}

} // namespace
} // namespace rtsptap::test
