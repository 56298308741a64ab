// What takes 5 or 25 seconds, all of it at once.
#include "tests/support/session.h"

using namespace rtsptap::test;

namespace {

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
    EXPECT_EQ(session.Pause(), 0);
    EXPECT_EQ(session.Teardown(), 0);
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
    struct sigaction quiet = {};
    quiet.sa_handler = [](int) {};
    quiet.sa_flags = SA_RESTART;
    sigaction(SIGUSR1, &quiet, nullptr);
    const pthread_t reader = pthread_self();
    for (const uint32_t proto : {kUdp, kTcp}) {
        // Before they come: an exchange fails when it is interrupted.
        const Session session(proto, CLIENT_PLAYING_STATE);
        std::jthread signals([reader](const std::stop_token &stop) {
            for (; !stop.stop_requested(); usleep(10000)) pthread_kill(reader, SIGUSR1);
        });
        RTPStreamData *packet = nullptr;
        ExpectAbout(5, [&] { EXPECT_EQ(RTPClientGetRTPStreamData(session, &packet, kVideo), -1); });
    }
}

} // namespace

TEST(TimeLimits, EndAfter5Or25Seconds) {
    CapturedStdout out;
    std::vector<std::thread> threads;
    for (const auto body : {ReadOfAReply, WaitForAReplyAmongFrames, ReportAfterSilence, WaitForAPacketAmongSignals})
        threads.emplace_back(body);
    for (std::thread &thread : threads) thread.join();
    EXPECT_EQ(CountOf(out.Text(), "recv function error"), 0U);
}
