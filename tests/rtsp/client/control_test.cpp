// The methods beyond the base: GET_PARAMETER, SET_PARAMETER, PLAY from a place, TEARDOWN of any session.
#include "tests/support/session.h"

namespace rtsptap::test {
namespace {

TEST(Parameters, GoWithTheirBodyInEveryStateAndBringOneBack) {
    for (const uint32_t proto : {kUdp, kTcp}) {
        const HeaderList own({{"Content-Type", "text/x"}});
        const Script further = {
            {{"GET_PARAMETER {base} RTSP/1.0\r\n", "\r\nSession: {session}\r\n", "!Content-"}, Ok()},
            {{"GET_PARAMETER {base}/track2 ", "\r\nContent-Type: text/x\r\nContent-Length: 8\r\n\r\nposition"},
             WithBody("position: 5\r\n", "Content-Type: text/parameters")},
            {{"SET_PARAMETER {base} ", "Content-Type: text/y\r\n", "\r\n\r\nvolume: 1"}, Status(451, "Unknown")},
            {"PAUSE ", Ok()}};
        Session session(proto, CLIENT_PLAYING_STATE, further);
        char body[16] = "#";
        uint32_t size = 0;
        EXPECT_EQ(RTSPTapGetParameter(session, 0, 0, "text/z", "", body, &size), RTSP_SMALL_BUFFER);
        EXPECT_EQ(size, 1U);
        size = sizeof body;
        EXPECT_EQ(RTSPTapGetParameter(session, 2, own, nullptr, "position", body, &size), 0);
        EXPECT_STREQ(body, "position: 5\r\n");
        EXPECT_EQ(size, 14U);
        EXPECT_EQ(RTSPTapSetParameter(session, 0, own, "text/y", "volume: 1", nullptr, nullptr), RTSP_CLIENT_ERROR);
        EXPECT_EQ(StateOf(session), CLIENT_PLAYING_STATE);
        EXPECT_EQ(session.Pause(), 0);
    }
    Session session(kUdp, CLIENT_INIT_STATE, {{{"GET_PARAMETER {base} ", "!Session"}, Ok()}});
    EXPECT_EQ(RTSPTapGetParameter(session, 0, 0, nullptr, nullptr, nullptr, nullptr), 0);
}

TEST(Teardown, EndsASessionThatWasOnlySetUpWithinItsOwnLimit) {
    Session session(kTcp, CLIENT_READY_STATE, {{"TEARDOWN {base} ", Stall()}, {"TEARDOWN {base} ", Ok()}});
    EXPECT_EQ(RTSPTapSetOption(session, RTSPTAP_OPTION_TEARDOWN_LIMIT, 50), 0);
    EXPECT_TRUE(SucceedsSoon([&] { return RTSPTapTeardown(session) == RTSP_RESPONSE_TIMEOUT ? 0 : -1; }));
    EXPECT_EQ(StateOf(session), CLIENT_READY_STATE);
    EXPECT_EQ(RTSPTapTeardown(session), 0);
    EXPECT_TRUE(session.server.WaitForClose());
    EXPECT_EQ(RTSPTapTeardown(session), RTSP_NOT_CONNECTED);
    EXPECT_EQ(session.Connect(), 0);
}

TEST(Play, AsksForAPlaceAndSeeksWhilePlayingAndTellsWhatTheReplySays) {
    const std::string info = "RTP-Info: url={base}/track1;seq=65535;rtptime=4294967295, url=track2;rtptime=7";
    const HeaderList own({{"Range", "npt=1-"}, {"Scale", "3.0"}});
    for (const uint32_t proto : {kUdp, kTcp}) {
        const Script further = {
            {{"PLAY {base} ", "!Range", "!Scale", "!Speed"}, Ok()},
            {{"PLAY {base} ", "Range: npt=3725.500-\r\n", "Scale: -0.500\r\n", "Speed: 2.000\r\n", "!3.0"},
             Ok("Range: npt=1:02:05.5-now;time=x", "Scale: -0.5", info) + SendBytes(Frame(0, Rtp(9)))},
            {{"PLAY {base}/track2 ", "Range: npt=1-\r\n", "Scale: 3.0\r\n"}, Ok("RTP-Info: url=x;seq=1")},
            {{"PLAY {base} ", "Range: clock=2-\r\n"}, Ok("Range: npt=0-7.25")}};
        Session session(proto, CLIENT_READY_STATE, further);
        EXPECT_EQ(RTSPTapPlay(session, 0, nullptr, nullptr), 0);
        int64_t sequence[2] = {}, time[2] = {};
        RTSPTapPlayReply reply = {sizeof reply, 2, sequence, time, "", 0, 0, 0, 0};
        RTSPTapPlayRequest request = {sizeof request, 1, own, nullptr, 3725.5, 3, -0.5, 2};
        EXPECT_EQ(RTSPTapPlay(session, 0, &request, &reply), 0);
        EXPECT_EQ(std::string(reply.range), "npt=1:02:05.5-now;time=x");
        EXPECT_EQ(std::vector<double>({reply.start, reply.end, reply.scale, reply.speed}),
                  std::vector<double>({3725.5, -1, -0.5, 0}));
        EXPECT_EQ(std::vector<int64_t>({sequence[0], time[0], sequence[1], time[1]}),
                  std::vector<int64_t>({65535, 4294967295, -1, 7}));
        request = {offsetof(RTSPTapPlayRequest, range), 0, own, "beyond its size", 0, 0, 9, 0};
        reply.streamRoom = 1;
        EXPECT_EQ(RTSPTapPlay(session, 2, &request, &reply), 0);
        EXPECT_EQ(sequence[0] + sequence[1], -2); // stream 2 has no room
        request = {sizeof request, 0, 0, "clock=2-", 0, 0, 0, 0};
        EXPECT_EQ(RTSPTapPlay(session, 0, &request, &reply), 0);
        EXPECT_EQ(reply.end, 7.25);
        EXPECT_EQ(session.Video(proto == kTcp ? 1 : 0), Numbers(9, proto == kTcp ? 9 : 8));
        for (const double bad : {-1.0, 1e10, std::numeric_limits<double>::quiet_NaN()}) {
            request = {sizeof request, 1, 0, nullptr, bad, 0, 0, 0};
            EXPECT_EQ(RTSPTapPlay(session, 0, &request, nullptr), RTSPTAP_OUT_OF_RANGE);
        }
        request.recordSize = 3;
        EXPECT_EQ(RTSPTapPlay(session, 0, &request, nullptr), RTSP_INVALID_ARGUMENT);
    }
}

} // namespace
} // namespace rtsptap::test
